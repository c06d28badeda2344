// The worked example of docs/protocol.md is what the program sends.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "kit/link/Frame.h"

namespace {

// The leading pairs of hex digits of every line of the page's one hex block.
Bytes ExampleOfThePage() {
    std::ifstream page(VELMORA_SOURCE_DIR "/docs/protocol.md");
    Bytes bytes;
    std::string line;
    bool inside = false;
    while (std::getline(page, line)) {
        if (line.starts_with("```")) {
            inside = line == "```hex";
            continue;
        }
        if (!inside) continue;
        std::istringstream words(line.substr(0, line.find("  ")));
        std::string word;
        while (words >> word)
            bytes.push_back(static_cast<uint8_t>(std::stoi(word, nullptr, 16)));
    }
    return bytes;
}

TEST(Protocol, TheWorkedExampleIsWhatIsSent) {
    BMessage message("KTLR"_code);
    message.Add("path", "/");
    const Bytes example = ExampleOfThePage();
    ASSERT_EQ(example.size(), 66u);
    EXPECT_EQ(kit::BuildFrame({kit::FrameKind::Request, 4242, -1, 1}, message), example);
}

}  // namespace
