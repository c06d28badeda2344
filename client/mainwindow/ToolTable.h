// The tools of the main window, one row each: a new tool is a new row here.
#pragma once

#include <cstdint>
#include <span>

#include "client/uikit/KTToolView.h"

namespace client {

struct Tool {
    uint32_t code;      // of its menu item and button
    int8_t index;       // in the setting "lastview"
    const char* group;  // of its settings; also the view's object name
    int32_t textId;
    const char* icon;
    KTToolView* (*make)(const Tool& tool, KTToolContext context, QWidget* parent);
};

// In the order of the "Tools" menu.
std::span<const Tool> Tools();
const Tool* ToolOfCode(uint32_t code);  // null when no tool has it
const Tool* ToolOfIndex(int8_t index);  // null when no tool has it

}  // namespace client
