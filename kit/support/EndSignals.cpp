#include "kit/support/EndSignals.h"

#include <pthread.h>
#include <signal.h>

namespace kit {

namespace {

sigset_t Signals() {
    sigset_t set;
    ::sigemptyset(&set);
    for (const int number : {SIGTERM, SIGINT, SIGUSR1})
        ::sigaddset(&set, number);
    return set;
}

}  // namespace

void EndSignals::Block() {
    const sigset_t signals = Signals();
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

EndSignals::EndSignals(std::function<void()> told)
    : fTold(std::move(told)), fThread([this] { Wait(); }) {}

EndSignals::~EndSignals() {
    fOver = true;
    ::pthread_kill(fThread.native_handle(), SIGUSR1);
    fThread.join();
}

void EndSignals::Wait() {
    const sigset_t signals = Signals();
    for (;;) {
        int number = 0;
        if (::sigwait(&signals, &number) != 0) continue;
        if (fOver) return;
        if (number != SIGUSR1) fTold();  // SIGUSR1: somebody else's
    }
}

}  // namespace kit
