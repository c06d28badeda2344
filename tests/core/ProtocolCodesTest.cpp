// docs/protocol.md and core/protocol/Codes.h list the same codes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>

namespace {

std::string Read(const std::string& path) {
    std::ifstream file(std::string(VELMORA_SOURCE_DIR "/") + path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

std::set<std::string> All(const std::string& text, const char* pattern) {
    std::set<std::string> found;
    const std::regex expression(pattern, std::regex::ECMAScript | std::regex::multiline);
    for (std::sregex_iterator it(text.begin(), text.end(), expression), end; it != end; ++it) {
        EXPECT_TRUE(found.insert((*it)[1]).second) << (*it)[1] << " stands there twice";
    }
    return found;
}

TEST(Protocol, PageAndHeaderListTheSameCodes) {
    const std::string page = Read("docs/protocol.md");
    const size_t begin = page.find("\n## Codes\n");
    ASSERT_NE(begin, std::string::npos);
    const size_t end = page.find("\n## ", begin + 1);
    const auto described = All(page.substr(begin, end - begin), R"(^\| '(....)' \|)");
    const auto declared = All(Read("core/protocol/Codes.h"), R"x(= "(....)"_code;)x");
    EXPECT_GE(declared.size(), 38u);
    EXPECT_EQ(described, declared);
}

}  // namespace
