#include "server/engine/TreeBuilder.h"

#include <sys/stat.h>

#include <algorithm>
#include <vector>

#include "server/engine/CatalogueCount.h"

namespace server {

namespace {

// Of a directory that nothing is known of but its name.
constexpr uint32_t kMadeUpMode = S_IFDIR | 0755;

// Takes the first component off.
std::string_view TakePart(std::string_view* path) {
    const size_t slash = path->find('/');
    const std::string_view part = path->substr(0, slash);
    *path = slash == std::string_view::npos ? std::string_view() : path->substr(slash + 1);
    return part;
}

}  // namespace

TreeBuilder::TreeBuilder() : fRoot(NewNode()) {
    SetDirectory(fRoot);
}

bool TreeBuilder::IsName(std::string_view name) {
    return !name.empty() && name != "." && name != ".." &&
           name.find('\0') == std::string_view::npos;
}

void TreeBuilder::SetDirectory(Node* node) {
    if (!node->children) node->children = std::make_unique<Children>();
}

TreeBuilder::Node* TreeBuilder::Find(std::string_view path) {
    Node* node = fRoot;
    while (!path.empty()) {
        if (!node->children) return nullptr;
        const auto found = node->children->find(TakePart(&path));
        if (found == node->children->end()) return nullptr;
        node = found->second;
    }
    return node;
}

TreeBuilder::Node* TreeBuilder::At(std::string_view path) {
    if (path.empty() || path.ends_with('/')) return nullptr;
    for (std::string_view rest = path; !rest.empty();)
        if (!IsName(TakePart(&rest))) return nullptr;
    Node* node = fRoot;
    while (!path.empty()) {
        // What was no directory and now holds something has become one.
        if (!node->children) {
            node->entry = {};
            node->entry.mode = kMadeUpMode;
            SetDirectory(node);
        }
        const std::string_view name = TakePart(&path);
        auto found = node->children->find(name);
        if (found == node->children->end()) {
            Node* made = NewNode();
            made->entry.mode = kMadeUpMode;
            found = node->children->emplace(name, made).first;
        }
        // All but the last are directories.
        node = found->second;
    }
    return node;
}

// The node, and all below it, is not there any more; links to it are lost.
void TreeBuilder::Leave(Node* node) {
    std::vector<Node*> leaving{node};
    while (!leaving.empty()) {
        Node* next = leaving.back();
        leaving.pop_back();
        next->isThere = false;
        if (!next->children) continue;
        for (const auto& [name, child] : *next->children)
            leaving.push_back(child);
        next->children.reset();
    }
}

void TreeBuilder::Remove(std::string_view path) {
    const size_t slash = path.rfind('/');
    Node* parent = slash == std::string_view::npos ? fRoot : Find(path.substr(0, slash));
    if (!parent || !parent->children) return;
    const auto found = parent->children->find(path.substr(slash + 1));
    if (found == parent->children->end()) return;
    Leave(found->second);
    parent->children->erase(found);
}

bool TreeBuilder::Put(std::string_view path, const CatalogueEntry& entry) {
    const bool isDirectory = S_ISDIR(entry.mode);
    // At the top there are volumes and nothing else.
    if (!isDirectory && path.find('/') == std::string_view::npos) return false;
    if (!isDirectory) Remove(path);
    Node* node = At(path);
    if (!node) return false;
    node->entry = entry;
    if (isDirectory) SetDirectory(node);
    return true;
}

bool TreeBuilder::PutLink(std::string_view path, std::string_view target, CatalogueEntry entry) {
    Node* first = Find(target);
    if (!first || first->children || first->target || first == fRoot) return false;
    // As what it is a name of: the header has neither.
    entry.mode = (first->entry.mode & S_IFMT) | (entry.mode & ~uint32_t{S_IFMT});
    entry.size = first->entry.size;
    if (Find(path) == first || !Put(path, entry)) return false;
    At(path)->target = first;
    return true;
}

kit::Status TreeBuilder::Take(CatalogueReader& catalogue) {
    std::vector<Node*> byId{fRoot};
    struct Open {
        Node* node;
        int32_t id;
    };
    std::vector<Open> open{{fRoot, kCatalogueRoot}};
    std::vector<std::pair<Node*, int32_t>> links;
    const auto damaged = [] {
        return kit::Error::Make(kit::ErrorKind::Damaged, "catalogue", "tree of the base");
    };
    while (!open.empty()) {
        const auto [parent, id] = open.back();
        open.pop_back();
        const auto directory = catalogue.DirectoryAt(id);
        if (!directory || (directory->count > 0 && directory->first <= id)) return damaged();
        parent->entry.frame = directory->frame;
        parent->entry.offset = directory->offset;
        const kit::Status read = catalogue.Entries(*directory, [&](const CatalogueEntry& entry) {
            if (!IsName(entry.name)) return true;
            Node* node = NewNode();
            node->entry = entry;
            node->entry.id = 0;
            node->entry.name.clear();
            if (static_cast<size_t>(entry.id) >= byId.size())
                byId.resize(static_cast<size_t>(entry.id) + 1);
            byId[static_cast<size_t>(entry.id)] = node;
            if (entry.link != 0) links.emplace_back(node, entry.link);
            if (S_ISDIR(entry.mode)) {
                SetDirectory(node);
                open.push_back({node, entry.id});
            }
            parent->children->emplace(entry.name, node);
            return true;
        });
        if (!read) return read;
    }
    for (const auto& [node, id] : links) {
        if (id < 0 || static_cast<size_t>(id) >= byId.size() || !byId[static_cast<size_t>(id)])
            return damaged();
        node->target = byId[static_cast<size_t>(id)];
    }
    return {};
}

TreeBuilder::Totals TreeBuilder::Write(CatalogueWriter& writer) {
    Totals totals;
    std::vector<Node*> open{fRoot};
    fRoot->entry.id = kCatalogueRoot;
    fRoot->entry.frame = -1;
    while (!open.empty()) {
        Node* directory = open.back();
        open.pop_back();
        CatalogueDirectory row{directory->entry.id, writer.NextId(), 0, directory->entry.frame,
                               directory->entry.offset};
        const size_t first = open.size();
        if (directory->children) {
            for (const auto& [name, node] : *directory->children) {
                CatalogueEntry entry = node->entry;
                entry.link = 0;
                if (node->target) {
                    // What it is a name of comes before it in every stream of ours.
                    const Node& target = *node->target;
                    if (!target.isThere || target.children || target.entry.id == 0) {
                        ++totals.lost;
                        continue;
                    }
                    entry.link = target.entry.id;
                }
                const bool isDirectory = S_ISDIR(entry.mode);
                // Where a directory's header lies is in its other row.
                if (isDirectory) entry.frame = -1, entry.offset = 0;
                node->entry.id = writer.AddEntry(entry, name);
                if (isDirectory) {
                    open.push_back(node);
                } else {
                    ++totals.files;
                    totals.bytes += DataSize(entry);
                }
            }
        }
        row.count = writer.NextId() - row.first;
        writer.AddDirectory(row);
        std::reverse(open.begin() + static_cast<std::ptrdiff_t>(first), open.end());
    }
    return totals;
}

}  // namespace server
