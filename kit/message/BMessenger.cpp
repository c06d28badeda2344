#include "kit/message/BMessenger.h"

#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>

#include "kit/app/BHandler.h"
#include "kit/app/HandlerRegistry.h"
#include "kit/link/Link.h"

using kit::HandlerRegistry;
using kit::Link;

namespace {

using AnswerFunction = BMessenger::AnswerFunction;

// The way back of a question that stays in this process.
class LocalDelivery : public BDelivery {
public:
    explicit LocalDelivery(AnswerFunction done) : fDone(std::move(done)) {
        senderTeam = ::getpid();
        waiting = true;
    }
    void Answer(BMessage&& answer) override {
        answer.SetDelivery(nullptr);
        fDone(BSendResult::Ok, std::move(answer));
    }
    AnswerFunction Cancel() {
        waiting = false;
        return std::move(fDone);
    }

private:
    AnswerFunction fDone;
};

// What a waiting asker and whoever answers share; it outlives an asker that gave up.
struct Question {
    std::mutex mutex;
    std::condition_variable answered;
    bool done = false;
    BSendResult result = BSendResult::NoReply;
    BMessage answer;
};

void AskHere(int32_t token, BMessage message, AnswerFunction done) {
    auto delivery = std::make_unique<LocalDelivery>(std::move(done));
    LocalDelivery* const ours = delivery.get();
    message.SetDelivery(std::move(delivery));
    if (!HandlerRegistry::Get().Post(token, message)) {
        ours->Cancel()(BSendResult::NoTarget, BMessage());
    }
}

}  // namespace

BMessenger::BMessenger(const BHandler* handler)
    : fTeam(::getpid()), fToken(handler ? handler->Token() : 0) {}

bool BMessenger::IsTargetLocal() const {
    return fTeam == ::getpid();
}

bool BMessenger::IsValid() const {
    if (IsTargetLocal()) return HandlerRegistry::Get().IsThere(fToken);
    const auto link = Link::Current();
    return link && link->Reach(fTeam);
}

BSendResult BMessenger::SendMessage(BMessage message) const {
    if (IsTargetLocal()) {
        return HandlerRegistry::Get().Post(fToken, message) ? BSendResult::Ok
                                                            : BSendResult::NoTarget;
    }
    const auto link = Link::Current();
    return link ? link->Send(fTeam, fToken, message) : BSendResult::NoTarget;
}

BSendResult BMessenger::SendMessage(uint32_t code) const {
    return SendMessage(BMessage(code));
}

BSendResult BMessenger::SendMessage(BMessage message, BMessage* reply,
                                    std::optional<std::chrono::milliseconds> timeout) const {
    const auto link = Link::Current();
    if (link && link->IsLinkThread()) return BSendResult::Refused;
    const auto question = std::make_shared<Question>();
    const auto done = [question](BSendResult result, BMessage answer) {
        {
            std::lock_guard lock(question->mutex);
            question->result = result;
            question->answer = std::move(answer);
            question->done = true;
        }
        question->answered.notify_all();
    };
    uint64_t request = 0;
    if (IsTargetLocal()) {
        if (HandlerRegistry::Get().IsDispatchedHere(fToken)) return BSendResult::Refused;
        AskHere(fToken, std::move(message), done);
    } else if (link) {
        request = link->Ask(fTeam, fToken, message, done);
    } else {
        return BSendResult::NoTarget;
    }

    std::unique_lock lock(question->mutex);
    const auto isDone = [&] { return question->done; };
    if (timeout) {
        // Bounded, so that "for ever" in milliseconds does not overflow the clock.
        const std::chrono::milliseconds longest = std::chrono::hours(24 * 365);
        if (!question->answered.wait_for(lock, std::min(*timeout, longest), isDone)) {
            lock.unlock();
            if (request != 0) link->Forget(request);
            return BSendResult::TimedOut;
        }
    } else {
        question->answered.wait(lock, isDone);
    }
    if (reply) *reply = std::move(question->answer);
    return question->result;
}

void BMessenger::Ask(BMessage message, AnswerFunction done) const {
    if (IsTargetLocal()) {
        AskHere(fToken, std::move(message), std::move(done));
    } else if (const auto link = Link::Current()) {
        link->Ask(fTeam, fToken, message, std::move(done));
    } else {
        done(BSendResult::NoTarget, BMessage());
    }
}
