// velmora-open FILE...: what the desktop starts. It brings the user's running client to the front,
// or starts one, and hands it the files; the client itself opens nothing that stands on its command
// line.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "core/protocol/Codes.h"
#include "kit/app/BApplication.h"
#include "kit/app/BRoster.h"

namespace {

constexpr char kSignature[] = "application/x-vnd.velmoraware-backup-open";
// A client that starts may itself wait for its server this long before it answers.
constexpr auto kPatience = std::chrono::seconds(30);

int Fail(const std::string& reason) {
    std::fprintf(stderr, "velmora-open: %s\n", reason.c_str());
    return EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
    BMessage refs(B_REFS_RECEIVED);
    for (int i = 1; i < argc; ++i) {
        std::error_code error;
        const auto path = std::filesystem::absolute(argv[i], error);
        if (!error) refs.Add("refs", entry_ref{path.string()});
    }

    BApplication::Options options;
    options.multiple = true;
    BApplication application(kSignature, options);
    if (application.InitCheck() != BApplication::Start::Ready) return Fail(application.Problem());

    const BRoster roster;
    auto team = roster.TeamFor(core::kClientSignature);
    if (!team) {
        const auto launched = roster.Launch(BApplication::ProgramFolder() + "/VelmoraBackup");
        if (!launched) return Fail(launched.error().Text());
        team = *launched;
    }
    constexpr auto kMilliseconds = std::chrono::milliseconds(kPatience).count();
    if (!roster.WaitForTeam(*team, kMilliseconds)) return Fail("the client does not start");
    BMessage answer;
    const auto sent =
        BMessenger(*team, BMessenger::kApplication).SendMessage(refs, &answer, kPatience);
    return sent == BSendResult::Ok ? EXIT_SUCCESS : Fail("the client does not answer");
}
