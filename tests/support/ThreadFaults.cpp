#include "ThreadFaults.h"

#include "Caller.h"
#include "interpose/Interpose.h"

#include <atomic>
#include <utility>

namespace rk::tests {

namespace {

struct Lock {
    int error = 0;
    int locksUntilIt = 0;
};

std::atomic<int> faultOfThreads{0};
std::atomic<int> threadsUntilIt{0};
thread_local Lock faultOfLocks;
thread_local int faultOfJoins = 0; // of the next join

std::function<void()>& pendingAction() {
    thread_local std::function<void()> action;
    return action;
}

/// Returns the error of the fault that is due for this new thread, or 0.
int dueFaultOfThreads() {
    const int error = faultOfThreads;
    return error != 0 && --threadsUntilIt <= 0 ? error : 0;
}

/// Returns the error of the fault that is due for this lock, or 0.
int dueFaultOfLocks(const void* caller) {
    Lock& fault = faultOfLocks;
    if (fault.locksUntilIt == 0 || !isInLibrary(caller)) {
        return 0;
    }
    --fault.locksUntilIt;
    return fault.locksUntilIt == 0 ? fault.error : 0;
}

void runPendingAction() {
    if (const std::function<void()> action = std::exchange(pendingAction(), nullptr)) {
        action();
    }
}

/// Joins before it fails.
std::intptr_t join(const Real& real) {
    runPendingAction();
    const std::intptr_t error = real();
    const int fault = std::exchange(faultOfJoins, 0);
    return fault != 0 ? fault : error;
}

} // namespace

std::intptr_t performOnThread(const Call& call, const Real& real) {
    if (call.function == Function::PthreadJoin) {
        return join(real);
    }
    if (call.function == Function::FutureWait) {
        // A listener waits like this for the end of its thread before it joins it.
        if (isInLibrary(call.caller)) {
            runPendingAction();
        }
        return real();
    }
    const int error = call.function == Function::PthreadMutexLock ? dueFaultOfLocks(call.caller) : dueFaultOfThreads();
    return error != 0 ? error : real();
}

BeforeJoin::BeforeJoin(std::function<void()> action) {
    pendingAction() = std::move(action);
}

BeforeJoin::~BeforeJoin() {
    pendingAction() = nullptr;
}

JoinFault::JoinFault(int error) {
    faultOfJoins = error;
}

JoinFault::~JoinFault() {
    faultOfJoins = 0;
}

MutexFault::MutexFault(int error, int nth) {
    faultOfLocks = {error, nth};
}

MutexFault::~MutexFault() {
    faultOfLocks = {};
}

ThreadFault::ThreadFault(int error, int nth) {
    threadsUntilIt = nth;
    faultOfThreads = error;
}

ThreadFault::~ThreadFault() {
    faultOfThreads = 0;
}

} // namespace rk::tests
