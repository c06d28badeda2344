// Dispatch as a table: from a message's code to the member function that handles it.
#pragma once

#include <span>

#include "kit/message/BMessage.h"

template <class View>
struct KTDispatchEntry {
    uint32_t code;
    void (View::*handler)(BMessage& message);
};

// False when the table has no such code.
template <class View>
bool KTDispatch(View* view, std::span<const KTDispatchEntry<View>> table, BMessage& message) {
    for (const KTDispatchEntry<View>& entry : table) {
        if (entry.code != message.what) continue;
        (view->*entry.handler)(message);
        return true;
    }
    return false;
}
