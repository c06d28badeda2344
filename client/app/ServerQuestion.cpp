#include "client/app/ServerQuestion.h"

#include <QEventLoop>
#include <QGuiApplication>
#include <QTimer>
#include <condition_variable>
#include <mutex>

#include "client/uikit/KTWindowLooper.h"

namespace client {
namespace {

using namespace std::chrono_literals;

constexpr auto kAtOnce = 5ms;
constexpr auto kUntilCursor = 300ms;

// Shared by the waiting window and the kit's thread that brings the answer, whoever is there
// longer.
struct Pending {
    std::mutex mutex;
    std::condition_variable changed;
    bool over = false;
    std::optional<BMessage> answer;
    QEventLoop* waiting = nullptr;

    void Arrived(BSendResult result, BMessage message) {
        const std::lock_guard lock(mutex);
        over = true;
        // Code 0 says that the question was let go unanswered.
        if (result == BSendResult::Ok && message.what != 0) answer = std::move(message);
        changed.notify_all();
        if (waiting) QMetaObject::invokeMethod(waiting, &QEventLoop::quit, Qt::QueuedConnection);
    }
};

class HoldMessages {
public:
    HoldMessages() { WindowLooper()->Hold(); }
    ~HoldMessages() { WindowLooper()->Release(); }
    HoldMessages(const HoldMessages&) = delete;
    HoldMessages& operator=(const HoldMessages&) = delete;
};

void WaitWithPainting(Pending& pending, std::chrono::milliseconds patience) {
    QEventLoop loop;
    {
        const std::lock_guard lock(pending.mutex);
        if (pending.over) return;
        pending.waiting = &loop;
    }
    bool cursor = false;
    QTimer::singleShot(kUntilCursor, &loop, [&cursor] {
        cursor = true;
        QGuiApplication::setOverrideCursor(Qt::WaitCursor);
    });
    QTimer::singleShot(patience, &loop, &QEventLoop::quit);
    loop.exec(QEventLoop::ExcludeUserInputEvents);
    if (cursor) QGuiApplication::restoreOverrideCursor();
    const std::lock_guard lock(pending.mutex);
    pending.waiting = nullptr;
}

}  // namespace

std::optional<BMessage> AskAndWait(const BMessenger& target, const BMessage& question,
                                   std::chrono::milliseconds patience) {
    const HoldMessages hold;
    auto pending = std::make_shared<Pending>();
    target.Ask(question, [pending](BSendResult result, BMessage answer) {
        pending->Arrived(result, std::move(answer));
    });
    {
        // Most answers are there before an event loop would have been set up.
        std::unique_lock lock(pending->mutex);
        pending->changed.wait_for(lock, kAtOnce, [&] { return pending->over; });
    }
    WaitWithPainting(*pending, patience);
    const std::lock_guard lock(pending->mutex);
    return std::exchange(pending->answer, std::nullopt);
}

void AskLater(ServerLink* server, BMessage question, const BHandler* asker, uint32_t code,
              int32_t number) {
    server->AskServerLater(std::move(question), [to = BMessenger(asker), code, number](
                                                    BSendResult result, const BMessage& answer) {
        BMessage message(code);
        message.Add("number", number);
        // Code 0 says that the question was let go unanswered.
        const bool answered = result == BSendResult::Ok && answer.what != 0;
        message.Add("answered", answered);
        if (answered) message.Add("answer", answer);
        to.SendMessage(std::move(message));
    });
}

}  // namespace client
