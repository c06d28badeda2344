#include "client/app/Inquiry.h"

#include "client/app/ServerQuestion.h"
#include "client/uikit/KTWindowLooper.h"

namespace client {
namespace {

constexpr uint32_t kAnswered = "inqy"_code;

}  // namespace

Inquiry::Inquiry(ServerLink* server) : fServer(server) {
    WindowLooper()->AddHandler(this);
    fPatience.setSingleShot(true);
    fPatience.setInterval(kUsualPatience);
    fPatience.callOnTimeout([this] { Finish(std::nullopt); });
}

void Inquiry::Ask(BMessage question, Done done) {
    fDone = std::move(done);
    fPatience.start();
    AskLater(fServer, std::move(question), this, kAnswered, ++fNumber);
}

void Inquiry::Drop() {
    fDone = nullptr;
    fPatience.stop();
}

void Inquiry::MessageReceived(BMessage& message) {
    if (message.what != kAnswered) return BHandler::MessageReceived(message);
    if (message.Get<int32_t>("number", 0) == fNumber) Finish(message.Find<BMessage>("answer"));
}

void Inquiry::Finish(std::optional<BMessage> answer) {
    fPatience.stop();
    if (const Done done = std::exchange(fDone, nullptr)) done(std::move(answer));
}

}  // namespace client
