// The tree of a backup put together from its members in the order of the stream, and from the tree
// that it builds on; written as a catalogue when all are there. Holds the whole tree in memory:
// some 250 bytes an entry.
//
// One thread.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "server/catalogue/CatalogueReader.h"
#include "server/catalogue/CatalogueWriter.h"

namespace server {

class TreeBuilder {
public:
    TreeBuilder();

    // All of another catalogue; into an empty tree.
    kit::Status Take(CatalogueReader& catalogue);
    // Removes the entry, and what is below it. A path that is not there is none.
    void Remove(std::string_view path);
    // Puts an entry where `path` ("Volume/directory/name") says, in place of what was there; a
    // directory keeps what is in it. Directories on the way that are not there are made up.
    // `entry`: all but name and link. False: nothing can have such a path.
    bool Put(std::string_view path, const CatalogueEntry& entry);
    // The same for a further name of what `target` names, which must be there.
    bool PutLink(std::string_view path, std::string_view target, CatalogueEntry entry);

    struct Totals {
        int64_t files = 0, bytes = 0;
        int64_t lost = 0;  // hard links to what is not there any more
    };
    // The rows of all entries and directories.
    Totals Write(CatalogueWriter& writer);

private:
    struct Node;
    using Children = std::map<std::string, Node*, std::less<>>;
    struct Node {
        CatalogueEntry entry;  // without its name
        Node* target = nullptr;
        bool isThere = true;
        std::unique_ptr<Children> children;  // of a directory
    };

    Node* Find(std::string_view path);
    Node* At(std::string_view path);  // made where it is not there; null for what cannot be
    Node* NewNode() { return &fNodes.emplace_back(); }
    void Leave(Node* node);
    static bool IsName(std::string_view name);
    static void SetDirectory(Node* node);

    std::deque<Node> fNodes;
    Node* const fRoot;
};

}  // namespace server
