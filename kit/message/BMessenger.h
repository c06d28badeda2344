// BMessenger: the address of a handler, in this process or another: (team, token). A plain value
// that travels in messages; it owns nothing and may be used from any thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>

class BHandler;
class BMessage;

// How a question ended.
enum class BSendResult {
    Ok,        // delivered; for a question: answered (an answer of code 0 means "no answer given")
    NoTarget,  // the handler or its team is not there; nothing was sent
    NoReply,   // the team went away before it answered
    TimedOut,  // no answer in time; a late one is dropped
    Refused,   // the message may not leave the process (it holds a pointer) or is too large
};

class BMessenger {
public:
    static constexpr int32_t kApplication = -1;  // token of a team's application object

    BMessenger() = default;
    BMessenger(int32_t team, int32_t token) : fTeam(team), fToken(token) {}
    // A handler of this process. It need not belong to a looper yet.
    explicit BMessenger(const BHandler* handler);

    int32_t Team() const { return fTeam; }
    int32_t Token() const { return fToken; }
    bool IsTargetLocal() const;
    // The target was there a moment ago: a local handler within a looper, or a running team that
    // listens. Says nothing about the next moment.
    bool IsValid() const;

    // Sends and returns at once; the message is copied or moved to the target's queue. A request
    // that is moved on to a handler of this process takes the right to answer along. The first
    // message to another team waits until its connection is made or refused.
    BSendResult SendMessage(BMessage message) const;
    BSendResult SendMessage(uint32_t code) const;

    // Asks and waits for the answer. Refused on the connection thread (inside an AnswerFunction)
    // and on the looper that would have to answer.
    BSendResult SendMessage(BMessage message, BMessage* reply,
                            std::optional<std::chrono::milliseconds> timeout = std::nullopt) const;

    // Asks without waiting. `done` is called exactly once, on whatever thread answers (on the
    // caller's, before Ask returns, when nothing could be sent), and must only hand the answer on;
    // it may send. `answer` is empty unless the result is Ok.
    using AnswerFunction = std::function<void(BSendResult result, BMessage answer)>;
    void Ask(BMessage message, AnswerFunction done) const;

    bool operator==(const BMessenger&) const = default;

private:
    int32_t fTeam = 0;
    int32_t fToken = kApplication;
    uint32_t fZero = 0;  // the third word of the wire form
};

static_assert(sizeof(BMessenger) == 12);
