// KTRuledListView: a tree of entries that are read as they are expanded, in which the user marks
// what a job is about. Every mark and unmark is recorded as a rule, and the rules are what leaves
// the view. What the entries are, and how they are read, the view of each kind says. Main thread.
//
// Rules of a loaded selection take effect at once, also those about rows that are not there yet:
// they are kept in their place, and dropped when what they lie in has been read and has no such
// entry.
#pragma once

#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "client/selection/SelectionFile.h"
#include "client/selection/TreeRules.h"
#include "client/uikit/KTColumnListView.h"

class KTRuledListView : public KTColumnListView {
    Q_OBJECT
public:
    void MultiSelect(KTRow row) override;
    void MultiDeselect(KTRow row) override;
    void MultiSelectAll(bool select) override;  // false: also forgets every rule
    // Anything at all is selected, be its row there or not.
    bool HasSelection() const;
    void GetSelection(BMessage* message) const { *message = fRules.Message(); }
    // Applies the rules of another selection to what is selected already. `expand`: reads what the
    // rules lead through.
    virtual void SetSelection(const BMessage& message, bool expand);
    virtual void RecordSelection(KTRow row, bool include);

    // Rules about what is not there are kept from now on, instead of skipped: for a job that waits,
    // whose volume may be back when it starts.
    void KeepMissing() { fKeepMissing = true; }

    // Selection files. `request` is the answer of a file panel. 0: good; else the failing step
    // (core::HeaderSave, core::HeaderLoad), or 4 when nothing is selected, with `request` emptied.
    int32_t SaveSelection(BMessage& request, const BMessage& selection) const;
    int32_t LoadSelection(const BMessage& request, BMessage* selection) const;

    void Expand(KTRow row) override;
    void InsertAllSubdirs(KTRow row);  // reads what lies below it and is not read yet
    virtual bool IsReading(KTRow row) const = 0;

    KTRowStore::Mark CellMark(KTRow row) const override;
    QString SpokenRow(KTRow row) const override;

protected:
    using KTColumnListView::KTColumnListView;

    // What a row is to the rules: "/a/b", empty for one that has no place of its own; whether its
    // rule covers all below it.
    virtual std::string RulePath(KTRow row) const = 0;
    virtual bool IsDirectory(KTRow row) const = 0;
    // The entry of a rule path below another; kNoRow: at the top.
    virtual KTRow EntryBelow(KTRow row, std::string_view name) const = 0;
    virtual bool IsTopKnown() const = 0;
    // Begins to read what is below a super item; rows come later, unless they are there by then.
    virtual void Read(KTRow row) = 0;
    // What its selection files are.
    virtual SelectionFile::Kind SelectionFiles() const = 0;
    // The name column's text without what the state adds.
    virtual QString NameOf(KTRow row) const = 0;

    bool IsUnread(KTRow row) const;
    bool CanBeRuled(KTRow row) const;
    // For those who read.
    void TopRead();  // the top is known, or known anew
    void ReadWell(KTRow row);
    void ReadFailed(KTRow row);  // it can be tried again; rules about what is in it are kept
    void ForgetFailure(KTRow row) { fUnreadable.erase(row); }
    template <class Within>
    void ForgetFailures(Within within) {
        std::erase_if(fUnreadable, within);
    }

    // Gives a row, and what is below it, the marks that the rules ask for, without recording
    // anything.
    void MarkByRules(KTRow row);
    void MarkUpwards(KTRow row);
    // Whether an entry that is about to become a row is taken: asked for many in one place.
    class Taken {
    public:
        Taken(const KTRuledListView& view, KTRow parent);
        bool operator()(std::string_view name, bool directory) const;

    private:
        const core::SelectionMatcher& fMatcher;
        std::string fParent;
        bool fUniform, fIncluded;
    };
    void SettleOpenRules();
    TreeRules& Rules() { return fRules; }
    const TreeRules& Rules() const { return fRules; }

private:
    // Where a rule's path leads.
    struct Walk {
        enum { Found, Unread, Missing } end = Missing;
        KTRow row = kNoRow;  // the last one that is there
    };
    void Apply(std::string_view rule, bool expand);
    Walk WalkTo(const std::vector<std::string>& components) const;
    void ReadFor(KTRow row);
    void UnmarkWithoutRules(KTRow row);
    void UnmarkEmptied(KTRow row);

    TreeRules fRules;
    bool fKeepMissing = false;
    bool fSelectAllLater = false;  // asked for before the top was known
    std::unordered_set<KTRow> fUnreadable;
};
