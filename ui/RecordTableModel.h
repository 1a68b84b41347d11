// The data viewer's grid model: the records of a key range, read as the view asks for them.
//
// Two cursors work on the listing. The counting one walks the range in slices between events,
// without cutting records, and notes where every 128th row lies (a CursorMark); the rows appear
// in the grid as they are counted. The reading one fills the rows the view shows: it comes back
// to the mark of the block of 128 rows holding the row and cuts those records, keeping the last
// few blocks. So the first screen shows as soon as the first block is read, the last row of a
// million is one block read once the count is done, and memory holds a mark per block and a few
// blocks of cells, whatever the size of the file.
#pragma once

#include <QAbstractTableModel>
#include <QTimer>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "store/RecordCursor.h"

namespace toverin::ui {

class RecordTableModel final : public QAbstractTableModel {
    Q_OBJECT
  public:
    static constexpr int kBlockRows = 128;
    static constexpr size_t kCachedBlocks = 8;

    explicit RecordTableModel(QObject* parent = nullptr);
    ~RecordTableModel() override;

    // Starts listing `query`; the grid empties first. Anything but Ok leaves it empty.
    CursorOpen Start(const CursorSpec& query);
    void Clear();

    // The rows counted so far, whether the count has reached the end of the range, and the
    // status that ended it (see RecordCursor::Status).
    int64_t CountedRows() const { return counted_; }
    bool CountComplete() const { return complete_; }
    int16_t CountStatus() const { return countStatus_; }
    int KeyCount() const { return reader_.KeyCount(); }
    // The engine status of the last Start's open (30: not a record file ...).
    int16_t OpenStatus() const { return reader_.Status(); }
    long long FileRecords() const { return reader_.RecordCount(); }
    // Counts to the end at once (tests, the benchmark).
    void CountAll();
    // Records read and cut for the grid since Start (how lazy the grid was).
    int64_t RecordsCut() const { return recordsCut_; }

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;

  signals:
    // The count moved on (`complete` once the end of the range is reached).
    void countChanged(qint64 rows, bool complete);

  private:
    struct Block {
        int index = -1;
        std::vector<std::vector<std::string>> rows;
    };

    // Counts up to `rows` more rows of the range; false once the end is reached.
    bool CountSlice(int64_t rows);
    void CountTick();
    const Block* BlockOf(int row) const;
    const Block& LoadBlock(int index) const;

    // The cursors read on const calls of the model (data() is const to the view).
    mutable RecordCursor reader_;
    RecordCursor counter_;
    std::vector<std::string> headings_;
    std::vector<CursorMark> marks_;  // where block i's first row lies
    int64_t counted_ = 0;
    bool complete_ = true;
    int16_t countStatus_ = 0;
    mutable std::deque<Block> cache_;  // most recent first
    mutable int readerNextRow_ = -1;   // the row the reader's next Next returns
    mutable int64_t recordsCut_ = 0;
    QTimer countTimer_;
};

}  // namespace toverin::ui
