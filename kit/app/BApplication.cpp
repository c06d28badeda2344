#include "kit/app/BApplication.h"

#include <unistd.h>

#include <array>
#include <cerrno>

#include "kit/app/HandlerRegistry.h"
#include "kit/link/Link.h"

BApplication* be_app = nullptr;

namespace {

// From the connection thread to the application object; believed only from inside.
constexpr uint32_t kTeamGone = "_TGN"_code;

}  // namespace

BApplication::BApplication(std::string signature) : BApplication(std::move(signature), Options()) {}

BApplication::BApplication(std::string signature, Options options)
    : BLooper("application"), fSignature(std::move(signature)), fOptions(std::move(options)) {
    be_app = this;
    kit::HandlerRegistry::Get().SetApplication(Token());
    fStart = Prepare();
}

BApplication::Start BApplication::Prepare() {
    const auto fail = [this](const kit::Error& error) {
        fProblem = error.Text();
        return Start::Failed;
    };
    const kit::RunDirectory& directory = fOptions.runDirectory;
    if (const kit::Status status = directory.Prepare(); !status) return fail(status.error());
    if (!fOptions.multiple) {
        auto lock = kit::SignatureLock::Take(directory, fSignature);
        if (!lock) return fail(lock.error());
        fLock = std::move(*lock);
        if (!fLock.IsHeld()) {
            const auto holder = kit::SignatureLock::Holder(directory, fSignature);
            if (!holder) {
                return fail(
                    kit::Error::Make(kit::ErrorKind::Exists, directory.LockPath(fSignature),
                                     "another process keeps the lock but does not say who"));
            }
            fOtherTeam = *holder;
        }
    }
    auto link = kit::Link::Start(directory, [token = Token()](int32_t team) {
        BMessage message(kTeamGone);
        message.Add("team", team);
        kit::HandlerRegistry::Get().Post(token, message);
    });
    if (!link) return fail(link.error());
    fLink = std::move(*link);
    return fOtherTeam != 0 ? Start::AlreadyRunning : Start::Ready;
}

BApplication::~BApplication() {
    Stop();
    // The socket goes before the lock: who finds the lock taken and no socket waits for us to be
    // gone.
    Disconnect();
    kit::HandlerRegistry::Get().SetApplication(0);
    if (be_app == this) be_app = nullptr;
}

void BApplication::Disconnect() {
    if (fLink) fLink->Stop();
}

int32_t BApplication::Team() const {
    return ::getpid();
}

std::string BApplication::ProgramFolder() {
    std::string path(4096, '\0');
    const ssize_t length = ::readlink("/proc/self/exe", path.data(), path.size());
    if (length <= 0) return "";
    path.resize(static_cast<size_t>(length));
    const size_t slash = path.rfind('/');
    return slash == 0 ? "/" : path.substr(0, slash);
}

void BApplication::MessageReceived(BMessage& message) {
    switch (message.what) {
        case B_REFS_RECEIVED:
            RefsReceived(message);
            return;
        case B_GET_PROPERTY: {
            BMessage answer(B_MESSAGE_NOT_UNDERSTOOD);
            answer.Add("error", int32_t{-ENOSYS});
            answer.Add("message", "there is no such property");
            message.SendReply(std::move(answer));
            return;
        }
        case kTeamGone:
            if (!message.IsSourceRemote()) TeamGone(message.Get<int32_t>("team", 0));
            return;
        default:
            BLooper::MessageReceived(message);
    }
}

void BApplication::RefsReceived(BMessage&) {}

void BApplication::TeamGone(int32_t) {}
