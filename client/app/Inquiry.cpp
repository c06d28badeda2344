#include "client/app/Inquiry.h"

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
    fServer->AskServerLater(std::move(question), [to = BMessenger(this), number = ++fNumber](
                                                     BSendResult result, const BMessage& answer) {
        BMessage answered(kAnswered);
        answered.Add("number", number);
        // Code 0 says that the question was let go unanswered.
        if (result == BSendResult::Ok && answer.what != 0) answered.Add("answer", answer);
        to.SendMessage(std::move(answered));
    });
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
