#include "client/selection/KTRuledListView.h"

#include <algorithm>

#include "client/uikit/KTControl.h"
#include "core/locale/MoreTexts.h"

bool KTRuledListView::IsUnread(KTRow row) const {
    return Rows().IsSuperItem(row) && Rows().UserFlag(row) == 0;
}

bool KTRuledListView::CanBeRuled(KTRow row) const {
    // The rule of a file of this name would be that of everything beside it.
    return IsDirectory(row) || !RulePath(row).ends_with("/*");
}

// --- marking ------------------------------------------------------------------------------------

void KTRuledListView::RecordSelection(KTRow row, bool include) {
    fRules.Record(include, RulePath(row), IsDirectory(row));
}

void KTRuledListView::MultiSelect(KTRow row) {
    if (!CanBeRuled(row)) return;
    RecordSelection(row, true);
    KTColumnListView::MultiSelect(row);
}

void KTRuledListView::MultiDeselect(KTRow row) {
    if (!CanBeRuled(row)) return;
    RecordSelection(row, false);
    KTColumnListView::MultiDeselect(row);
}

void KTRuledListView::MultiSelectAll(bool select) {
    fSelectAllLater = select && !IsTopKnown();
    if (select) return KTColumnListView::MultiSelectAll(true);
    Rows().ClearMarks();
    fRules.Clear();
}

bool KTRuledListView::HasSelection() const {
    if (Rows().HasMarks() || fSelectAllLater) return true;
    const auto rules = core::selection::Rules(fRules.Message());
    return (fRules.HasOpen() || fKeepMissing) &&
           std::any_of(rules.begin(), rules.end(), [](const auto& rule) { return rule.include; });
}

// --- reading ------------------------------------------------------------------------------------

void KTRuledListView::Expand(KTRow row) {
    KTColumnListView::Expand(row);
    if (!IsUnread(row) || IsReading(row)) return;
    fUnreadable.erase(row);
    Read(row);
}

void KTRuledListView::ReadFor(KTRow row) {
    if (row != kNoRow && IsUnread(row) && !IsReading(row) && !fUnreadable.contains(row)) Read(row);
}

void KTRuledListView::InsertAllSubdirs(KTRow row) {
    const KTRow end = Rows().NextAfterSubtree(row);
    for (KTRow below = Rows().Next(row); below != end; below = Rows().Next(below))
        ReadFor(below);
}

void KTRuledListView::TopRead() {
    if (std::exchange(fSelectAllLater, false)) MultiSelectAll(true);
    SettleOpenRules();
}

void KTRuledListView::ReadWell(KTRow row) {
    fUnreadable.erase(row);
    Rows().SetUserFlag(row, 1);
    UnmarkEmptied(row);
}

void KTRuledListView::ReadFailed(KTRow row) {
    fUnreadable.insert(row);
    Rows().SetUserFlag(row, 0);
}

// --- rules --------------------------------------------------------------------------------------

void KTRuledListView::SetSelection(const BMessage& message, bool expand) {
    const int32_t count = message.Count(core::kSelectionField, B_STRING_TYPE);
    for (int32_t i = 0; i < count; ++i)
        Apply(*message.FindString(core::kSelectionField, i), expand);
}

KTRuledListView::Walk KTRuledListView::WalkTo(const std::vector<std::string>& components) const {
    Walk walk;
    for (const std::string& component : components) {
        const KTRow child = EntryBelow(walk.row, component);
        if (child == kNoRow) {
            const bool unread = walk.row == kNoRow ? !IsTopKnown() : IsUnread(walk.row);
            walk.end = unread ? Walk::Unread : Walk::Missing;
            return walk;
        }
        walk.row = child;
    }
    walk.end = walk.row == kNoRow ? Walk::Missing : Walk::Found;
    return walk;
}

void KTRuledListView::Apply(std::string_view rule, bool expand) {
    const bool include = rule.starts_with("INCLUDE");
    const auto components = TreeRules::Components(rule);
    const Walk walk = WalkTo(components);
    if (components.empty()) return;
    const bool missing = walk.end == Walk::Missing;
    if (missing && !fKeepMissing) return;
    if (expand) ReadFor(walk.row);
    if (walk.end == Walk::Found) {
        if (include)
            MultiSelect(walk.row);
        else
            MultiDeselect(walk.row);
        return;
    }
    core::SelectionRule open{include, rule.ends_with("/*"), {}};
    for (const std::string& component : components)
        open.path += "/" + component;
    fRules.Record(include, open.path, open.subtree);
    if (missing) return;
    fRules.OpenRules().push_back({open.Text(), expand});
    if (include) MarkUpwards(walk.row);
}

void KTRuledListView::SettleOpenRules() {
    if (!fRules.HasOpen()) return;
    std::vector<TreeRules::Open> still;
    for (TreeRules::Open& open : std::exchange(fRules.OpenRules(), {})) {
        // A later mark or unmark above it may have replaced it.
        if (!fRules.Has(open.text)) continue;
        const Walk walk = WalkTo(TreeRules::Components(open.text));
        if (walk.end == Walk::Missing && fKeepMissing) continue;
        if (walk.end == Walk::Missing) {
            fRules.Drop(open.text);
            UnmarkWithoutRules(walk.row);
            continue;
        }
        if (open.read) ReadFor(walk.row);
        if (walk.end == Walk::Unread) {
            still.push_back(std::move(open));
            continue;
        }
        auto rule = core::SelectionRule::Parse(open.text);
        if (rule && rule->subtree != IsDirectory(walk.row)) {
            // What was a file is a directory now, or the other way round.
            rule->subtree = !rule->subtree;
            fRules.Replace(open.text, *rule);
        }
        MarkByRules(walk.row);
    }
    fRules.OpenRules() = std::move(still);
}

void KTRuledListView::MarkUpwards(KTRow row) {
    for (; row != kNoRow && !Rows().IsMarked(row); row = Rows().Superitem(row))
        Rows().SetMarked(row, true);
}

void KTRuledListView::MarkByRules(KTRow row) {
    const std::string path = RulePath(row);
    const auto& matcher = fRules.Matcher();
    if (!path.empty()) {
        if (!IsDirectory(row) || matcher.IsUniform(path)) {
            if (matcher.Includes(path))
                Rows().MultiSelect(row);
            else if (Rows().IsMarked(row))
                Rows().MultiDeselect(row);
            return;
        }
        if (matcher.MayInclude(path)) MarkUpwards(row);
    }
    const int32_t count = Rows().ChildCount(row);
    for (int32_t i = 0; i < count; ++i)
        MarkByRules(Rows().ChildAt(row, i));
    UnmarkEmptied(row);
}

KTRuledListView::Taken::Taken(const KTRuledListView& view, KTRow parent)
    : fMatcher(view.fRules.Matcher()),
      fParent(view.RulePath(parent)),
      fUniform(fMatcher.IsUniform(fParent)),
      fIncluded(fMatcher.Includes(fParent)) {}

bool KTRuledListView::Taken::operator()(std::string_view name, bool directory) const {
    if (fUniform) return fIncluded;
    const std::string path = fParent + "/" + std::string(name);
    return directory ? fMatcher.MayInclude(path) : fMatcher.Includes(path);
}

// As after unmarking: a directory of whose entries none is marked is not marked either.
void KTRuledListView::UnmarkEmptied(KTRow row) {
    for (; row != kNoRow && Rows().IsMarked(row); row = Rows().Superitem(row)) {
        if (Rows().ChildCount(row) == 0 || Rows().HasMarksBelow(row)) return;
        Rows().SetMarked(row, false);
    }
}

// A rule that led here is gone: what was marked only because of it is so no more.
void KTRuledListView::UnmarkWithoutRules(KTRow row) {
    for (; row != kNoRow && !Rows().HasMarksBelow(row); row = Rows().Superitem(row)) {
        const std::string path = RulePath(row);
        if (!path.empty() && fRules.Matcher().MayInclude(path)) return;
        Rows().SetMarked(row, false);
    }
}

// --- files --------------------------------------------------------------------------------------

int32_t KTRuledListView::SaveSelection(BMessage& request, const BMessage& selection) const {
    return SelectionFile::Save(request, selection, HasSelection(), SelectionFiles());
}

int32_t KTRuledListView::LoadSelection(const BMessage& request, BMessage* selection) const {
    return SelectionFile::Load(request, selection, SelectionFiles());
}

// --- cells --------------------------------------------------------------------------------------

KTRowStore::Mark KTRuledListView::CellMark(KTRow row) const {
    const auto mark = Rows().MarkOf(row);
    if (mark != KTRowStore::Mark::Whole || !fRules.HasOpen() || !Rows().IsSuperItem(row))
        return mark;
    // What is not there yet counts, too.
    const std::string path = RulePath(row);
    return path.empty() || fRules.Matcher().IsUniform(path) ? mark : KTRowStore::Mark::Part;
}

QString KTRuledListView::SpokenRow(KTRow row) const {
    QString spoken = NameOf(row);
    if (IsReading(row)) spoken += ", " + KTControl::Text(core::kMoreBeingRead);
    return spoken;
}
