// layer placeholder
