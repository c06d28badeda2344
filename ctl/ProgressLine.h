// One line of a terminal that shows how far a job is. Pure but for Show and Clear.
#pragma once

#include <cstdint>
#include <string>

#include "kit/message/BMessage.h"

namespace ctl {

class ProgressLine {
public:
    // Without a terminal nothing is drawn.
    ProgressLine();

    bool IsOnTerminal() const { return fColumns > 0; }
    void Show(const BMessage& progress);  // 'KTJF' of line type 100
    void Clear();                         // before other output, and at the end

    // The text for a terminal of so many columns.
    static std::string Text(const BMessage& progress, size_t columns);

private:
    size_t fColumns = 0;
    bool fShown = false;
};

}  // namespace ctl
