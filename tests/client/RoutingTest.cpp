#include "client/app/Routing.h"

#include <gtest/gtest.h>

#include "client/app/ClientCodes.h"
#include "client/app/OpenFile.h"
#include "core/files/HeaderFile.h"
#include "kit/storage/NodeAttributes.h"
#include "tests/TemporaryFolder.h"

namespace {

using client::Route;
using client::RouteOf;

// The codes are spelled out: the table must not be tested with its own constants.
constexpr uint32_t kToServer[] = {"KTJC"_code, "KTJD"_code, "KTJL"_code, "KTJP"_code, "KTAB"_code,
                                  "KTje"_code, "KTbg"_code, "rpOP"_code, "rpCL"_code};
constexpr uint32_t kToWindow[] = {"KTJI"_code, "KTJR"_code, "KTJS"_code, "KTLr"_code,
                                  "KTLi"_code, "KTjc"_code, "rpIN"_code, "rpRM"_code,
                                  "ktcr"_code, "ktpr"_code, "ktvd"_code, "ktar"_code};
constexpr uint32_t kNeverBack[] = {"KTJF"_code, "KTJf"_code, "rpRP"_code, "NONE"_code, "xxxx"_code};

TEST(Routing, KnownCodesGoTheirWayWhoeverSendsThem) {
    for (const bool remote : {false, true}) {
        for (const bool namesJob : {false, true}) {
            for (const uint32_t code : kToServer)
                EXPECT_EQ(RouteOf(code, remote, namesJob), Route::Server) << CodeText(code);
            for (const uint32_t code : kToWindow)
                EXPECT_EQ(RouteOf(code, remote, namesJob), Route::Window) << CodeText(code);
            for (const uint32_t code : kNeverBack)
                EXPECT_EQ(RouteOf(code, remote, namesJob), Route::Dropped) << CodeText(code);
            EXPECT_EQ(RouteOf("KTJA"_code, remote, namesJob), Route::SubmitJob);
            EXPECT_EQ(RouteOf("KTLR"_code, remote, namesJob), Route::AskServer);
            EXPECT_EQ(RouteOf("ktpc"_code, remote, namesJob), Route::AskServer);
            for (const uint32_t code : {"PGET"_code, "REFS"_code, "_QRQ"_code})
                EXPECT_EQ(RouteOf(code, remote, namesJob), Route::Application);
        }
    }
    EXPECT_EQ(client::AnswerCodeOf("KTLR"_code), "KTLi"_code);
    EXPECT_EQ(client::AnswerCodeOf("ktpc"_code), "ktpr"_code);
}

TEST(Routing, UnknownCodesGoToTheServerOnlyWithAJob) {
    for (const bool remote : {false, true}) {
        EXPECT_EQ(RouteOf("zzzz"_code, remote, true), Route::ServerByJobId);
        EXPECT_EQ(RouteOf("KTjg"_code, remote, true), Route::ServerByJobId);
        EXPECT_EQ(RouteOf("zzzz"_code, remote, false), Route::Application);
    }
}

TEST(Routing, InternalCommandsAreNotTakenFromTheWire) {
    for (const uint32_t code : {"svrm"_code, "resq"_code, "bavw"_code, "_ABR"_code, "btn0"_code,
                                " ok "_code, "lang"_code, "svgo"_code}) {
        EXPECT_EQ(RouteOf(code, true, false), Route::Dropped) << CodeText(code);
        EXPECT_EQ(RouteOf(code, true, true), Route::Dropped) << CodeText(code);
    }
}

TEST(OpenFile, GoesByTypeThenByMagic) {
    const TemporaryFolder folder;
    const auto file = [&](const char* name, const std::string& magic, const char* type) {
        const std::string path = folder.Write(name, magic + std::string(100, '\0'));
        const bool typed = !type || kit::WriteAttribute(path, "mime_type", type);
        EXPECT_TRUE(typed) << path;
        return client::ToolForFile(path);
    };
    const char* backup = "application/x-vnd.velmoraware-backupselection";
    const char* restore = "application/x-vnd.velmoraware-restoreselection";
    EXPECT_EQ(file("a", "KTSELECT", backup), "bavw"_code);
    EXPECT_EQ(file("b", "KTBAKJOB", backup), "bavw"_code);
    EXPECT_EQ(file("c", "KTRESSEL", restore), "rsvw"_code);
    EXPECT_EQ(file("d", "KTRESJOB", restore), "rsvw"_code);
    EXPECT_EQ(file("e", "KTCMPJOB", restore), "cpvw"_code);
    // The type decides, what is in the file only refines it.
    EXPECT_EQ(file("f", "KTRESJOB", backup), "bavw"_code);
    EXPECT_EQ(file("g", "whatever", restore), "rsvw"_code);
    EXPECT_EQ(file("h", "KTSELECT", "text/plain"), 0u);
    // Without a type the first bytes do.
    EXPECT_EQ(file("i", "KTBAKJOB", nullptr), "bavw"_code);
    EXPECT_EQ(file("j", "KTCMPJOB", nullptr), "cpvw"_code);
    EXPECT_EQ(file("k", "KTBACKUP", nullptr), 0u);
    EXPECT_EQ(client::ToolForFile(folder.Write("short", "KTSEL")), 0u);
    EXPECT_EQ(client::ToolForFile(folder / "missing"), 0u);
}

}  // namespace
