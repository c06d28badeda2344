// The tables of a catalogue as they are made, word by word: one whose tables were made otherwise is
// none of ours. docs/archive.md tells what is in them.
#pragma once

#include <string_view>

namespace server {

struct CatalogueTable {
    std::string_view name;
    const char* sql;
};

inline constexpr CatalogueTable kCatalogueTables[] = {
    {"catalogue", "CREATE TABLE catalogue(version INTEGER NOT NULL)"},
    {"entries",
     "CREATE TABLE entries(id INTEGER PRIMARY KEY, name BLOB NOT NULL, mode INTEGER NOT NULL,"
     " uid INTEGER NOT NULL, gid INTEGER NOT NULL, size INTEGER NOT NULL, modified INTEGER NOT"
     " NULL, changed INTEGER NOT NULL, frame INTEGER, offset INTEGER, link INTEGER NOT NULL,"
     " incomplete INTEGER NOT NULL, node INTEGER NOT NULL)"},
    {"directories",
     "CREATE TABLE directories(id INTEGER PRIMARY KEY, first INTEGER NOT NULL,"
     " count INTEGER NOT NULL, frame INTEGER, offset INTEGER)"},
    {"frames",
     "CREATE TABLE frames(id INTEGER PRIMARY KEY, medium INTEGER NOT NULL, offset INTEGER NOT NULL,"
     " size INTEGER NOT NULL, content INTEGER NOT NULL, hash INTEGER NOT NULL,"
     " source INTEGER NOT NULL)"},
    {"chain", "CREATE TABLE chain(id INTEGER PRIMARY KEY, name TEXT NOT NULL)"},
    {"selection", "CREATE TABLE selection(id INTEGER PRIMARY KEY, rule BLOB NOT NULL)"},
    {"gone", "CREATE TABLE gone(path BLOB NOT NULL)"},
};

}  // namespace server
