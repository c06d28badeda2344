// KTRowStore: the rows of a KTColumnListView without any window: hierarchy, marks, flags and typed
// column values, a few dozen bytes a row. A row's id stays the same until the row is removed; ids
// of removed rows are used again. Main thread.
//
// Rows lie in blocks, column by column; the children of a row are kept in chunks of ids, so that
// inserting into, and removing from, a million of them costs no more than a chunk. Ids given to it
// must be those of rows that are there.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

using KTRow = uint32_t;
inline constexpr KTRow kNoRow = UINT32_MAX;  // also: the parent of top-level rows

enum class KTColumnKind : uint8_t {
    Icon,    // a number below 65,536 that the view's icon provider knows
    Text,    // bytes, cut at 65,535
    Number,  // int64
    Time,    // int64 seconds since the epoch
};

// One new row. `texts` and `numbers` have the values of the text and of the number, time and icon
// columns, each in column order.
struct KTRowData {
    std::span<const std::string_view> texts;
    std::span<const int64_t> numbers;
    bool superItem = false;
    bool marked = false;  // its ancestors must be marked already, or be marked by the caller
    uint8_t color = 0;
};

class KTRowStore {
public:
    explicit KTRowStore(std::vector<KTColumnKind> columns);
    ~KTRowStore();

    // What a model of these rows needs to know, before and after. One listener.
    class Listener {
    public:
        virtual ~Listener() = default;
        virtual void AboutToInsert(KTRow parent, int32_t first, int32_t count) = 0;
        virtual void Inserted() = 0;
        virtual void AboutToRemove(KTRow parent, int32_t first, int32_t count) = 0;
        virtual void Removed() = 0;
        virtual void AboutToMove(KTRow row, KTRow newParent) = 0;  // to the end of the new parent
        virtual void Moved() = 0;
        virtual void AboutToReset() = 0;
        virtual void Reset() = 0;
        // Values, marks or flags of `row`, or of a whole subtree, changed.
        virtual void Changed(KTRow row, bool subtree) = 0;
    };
    void SetListener(Listener* listener);

    // --- rows
    // ---------------------------------------------------------------------------------------
    KTRow AddUnder(KTRow parent, const KTRowData& row,
                   int32_t index = -1);                            // -1: as the last child
    void AddList(KTRow parent, std::span<const KTRowData> rows);   // one notification
    void Remove(KTRow row);                                        // with its subtree
    void RemoveRange(KTRow parent, int32_t first, int32_t count);  // one notification
    void RemoveChildren(KTRow row);
    void MakeEmpty();
    // To the end of the new parent's children, with its subtree. Not under itself.
    void Move(KTRow row, KTRow newParent);

    int32_t Count() const;  // all rows
    int32_t ChildCount(KTRow parent) const;
    KTRow ChildAt(KTRow parent, int32_t index) const;
    int32_t IndexInParent(KTRow row) const;
    KTRow Superitem(KTRow row) const;
    uint32_t Level(KTRow row) const;  // 0 at the top
    bool Has(KTRow row) const;
    // The full list in display order, shown or not: parents before their children.
    KTRow First() const;
    KTRow Next(KTRow row) const;
    KTRow NextAfterSubtree(KTRow row) const;
    // The first child with that text, kNoRow when there is none. Asked again and again for one
    // parent it does not search.
    KTRow ChildByText(KTRow parent, int column, std::string_view text) const;

    // --- values
    // -------------------------------------------------------------------------------------
    std::string_view TextAt(KTRow row, int column) const;  // valid until rows change
    int64_t NumberAt(KTRow row, int column) const;
    void SetText(KTRow row, int column, std::string_view text);
    void SetNumber(KTRow row, int column, int64_t value);
    bool IsSuperItem(KTRow row) const;
    void SetSuperItem(KTRow row, bool superItem);
    bool IsExpanded(KTRow row) const;
    void SetExpanded(KTRow row, bool expanded);
    uint32_t UserFlag(KTRow row) const;  // 0 or 1, the owning view's
    void SetUserFlag(KTRow row, uint32_t flag);
    void SetColor(KTRow row,
                  uint8_t colorIndex);  // an index that the view gives a colour to; 0: normal
    uint8_t Color(KTRow row) const;

    // --- marks
    // --------------------------------------------------------------------------------------
    bool IsMarked(KTRow row) const;
    bool HasMarks() const;
    bool HasMarksBelow(KTRow row) const;
    // Whole, part or none, as a box shows it: part is a marked super item with an unmarked
    // descendant.
    enum class Mark { None, Part, Whole };
    Mark MarkOf(KTRow row) const;
    // The row, its subtree, and its ancestors up to the first one already marked.
    void MultiSelect(KTRow row);
    // The row and its subtree, then each ancestor that has no other marked descendant.
    void MultiDeselect(KTRow row);
    // This row alone (lists without hierarchy, single selection).
    void SetMarked(KTRow row, bool marked);
    void ClearMarks();
    std::vector<KTRow> MarkedRows() const;  // in display order
    // Grows with every change of a mark, and when a marked row is removed.
    uint64_t MarkGeneration() const;

    // For tests: whether all that is kept in two places agrees.
    bool IsConsistent() const;

private:
    class Impl;
    std::unique_ptr<Impl> fImpl;
};
