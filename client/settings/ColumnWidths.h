// The widths of a list's columns, as its user left them. Null preferences keep nothing.
#pragma once

#include <span>

#include "client/settings/Preferences.h"

struct ColumnWidth {
    const char* key;     // "": not kept
    float usual;         // pixels
    bool stored = true;  // false: only read, another column stores it
};

constexpr float kLeastColumnWidth = 20;

inline float WidthOf(const ColumnWidth& column, const Preferences* preferences) {
    return preferences && *column.key ? preferences->GetFloat(column.key, column.usual)
                                      : column.usual;
}

inline void StoreWidth(std::span<const ColumnWidth> columns, int column, float width,
                       Preferences* preferences) {
    const auto index = static_cast<size_t>(column);
    if (!preferences || index >= columns.size()) return;
    if (const auto& [key, usual, stored] = columns[index]; stored && *key)
        preferences->Set(key, width);
}
