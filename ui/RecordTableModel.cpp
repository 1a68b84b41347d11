#include "ui/RecordTableModel.h"

namespace toverin::ui {

namespace {

// Rows the counting cursor walks between two turns of the event loop: a few tens of
// milliseconds of reading, so the window stays alive while a large file is counted.
constexpr int64_t kCountSlice = 20000;

}  // namespace

RecordTableModel::RecordTableModel(QObject* parent)
    : QAbstractTableModel(parent), reader_("Visualisation"), counter_("Visualisation") {
    countTimer_.setInterval(0);
    connect(&countTimer_, &QTimer::timeout, this, &RecordTableModel::CountTick);
}

RecordTableModel::~RecordTableModel() = default;

void RecordTableModel::Clear() {
    beginResetModel();
    countTimer_.stop();
    reader_.Close();
    counter_.Close();
    headings_.clear();
    marks_.clear();
    cache_.clear();
    counted_ = 0;
    complete_ = true;
    countStatus_ = 0;
    readerNextRow_ = -1;
    recordsCut_ = 0;
    endResetModel();
}

CursorOpen RecordTableModel::Start(const CursorSpec& query) {
    Clear();
    CursorOpen opened = reader_.Open(query);
    if (opened == CursorOpen::Ok) opened = counter_.Open(query);
    if (opened != CursorOpen::Ok) return opened;
    beginResetModel();
    headings_ = reader_.Headings();
    complete_ = false;
    readerNextRow_ = 0;
    endResetModel();
    // The first block at once, so that the first screen does not wait for the count.
    if (CountSlice(kBlockRows)) countTimer_.start();
    return CursorOpen::Ok;
}

bool RecordTableModel::CountSlice(int64_t rows) {
    int64_t before = counted_;
    bool more = true;
    while (rows-- > 0) {
        if (!counter_.Skip()) {
            more = false;
            break;
        }
        if (counted_ % kBlockRows == 0) marks_.push_back(counter_.Mark());
        ++counted_;
    }
    if (counted_ > before) {
        // The rows counted join the grid: the view hears of them as new rows.
        int64_t after = counted_;
        counted_ = before;
        beginInsertRows(QModelIndex(), static_cast<int>(before), static_cast<int>(after - 1));
        counted_ = after;
        endInsertRows();
    }
    if (!more) {
        complete_ = true;
        countStatus_ = counter_.Status();
        countTimer_.stop();
        counter_.Close();
    }
    emit countChanged(counted_, complete_);
    return more;
}

void RecordTableModel::CountTick() {
    CountSlice(kCountSlice);
}

void RecordTableModel::CountAll() {
    while (!complete_) CountSlice(kCountSlice);
}

int RecordTableModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(counted_);
}

int RecordTableModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(headings_.size());
}

QVariant RecordTableModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (role != Qt::DisplayRole) return {};
    if (orientation == Qt::Vertical) return section + 1;
    if (section < 0 || section >= static_cast<int>(headings_.size())) return {};
    return QString::fromStdString(headings_[static_cast<size_t>(section)]);
}

QVariant RecordTableModel::data(const QModelIndex& index, int role) const {
    if (role != Qt::DisplayRole || !index.isValid() || index.row() >= counted_) return {};
    const Block* block = BlockOf(index.row());
    if (!block) return {};
    size_t r = static_cast<size_t>(index.row() % kBlockRows);
    if (r >= block->rows.size()) return {};
    const std::vector<std::string>& cells = block->rows[r];
    size_t c = static_cast<size_t>(index.column());
    return c < cells.size() ? QString::fromStdString(cells[c]) : QString();
}

const RecordTableModel::Block* RecordTableModel::BlockOf(int row) const {
    const int index = row / kBlockRows;
    for (auto it = cache_.begin(); it != cache_.end(); ++it) {
        if (it->index != index) continue;
        if (it != cache_.begin()) {
            Block found = std::move(*it);
            cache_.erase(it);
            cache_.push_front(std::move(found));
        }
        return &cache_.front();
    }
    if (static_cast<size_t>(index) >= marks_.size()) return nullptr;
    return &LoadBlock(index);
}

const RecordTableModel::Block& RecordTableModel::LoadBlock(int index) const {
    Block block;
    block.index = index;
    const int first = index * kBlockRows;
    // Reading on from the previous block needs no positioning.
    if (readerNextRow_ != first) {
        reader_.SeekTo(marks_[static_cast<size_t>(index)]);
        readerNextRow_ = first;
    }
    CursorRow row;
    while (static_cast<int>(block.rows.size()) < kBlockRows && reader_.Next(row)) {
        block.rows.push_back(std::move(row.cells));
        ++readerNextRow_;
        ++recordsCut_;
    }
    if (static_cast<int>(block.rows.size()) < kBlockRows) readerNextRow_ = -1;
    cache_.push_front(std::move(block));
    if (cache_.size() > kCachedBlocks) cache_.pop_back();
    return cache_.front();
}

}  // namespace toverin::ui
