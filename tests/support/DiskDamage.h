// Damage done to a record file as a failing disk would: a page of the file overwritten.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace toverin::testing {

// Pages of one table or index of a record file's storage, leaves only, in b-tree order, with
// their cell counts.
std::vector<std::pair<int, int>> LeafPages(const std::string& path, const std::string& name);
// Overwrites page `page` (1-based, 4096 bytes) with garbage.
void Scribble(const std::string& path, int page);

}  // namespace toverin::testing
