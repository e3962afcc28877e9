// Copyright (C) 2026 The libvircam Authors

// Built into every host program (tests, simulator, fuzzers): what the
// sanitizers must know about the library's deliberate lock patterns and
// about glibc and the uninstrumented platform libraries.

extern "C" {

// __cxa_thread_atexit_impl: glibc's list node for a thread's thread_local
// destructors, which the thread frees as it ends. A leak check that runs
// while a thread is ending (libFuzzer checks after every input, and peers'
// threads end all the time) finds the node neither in a live thread's
// storage nor freed yet.
const char* __lsan_default_suppressions() {  // NOLINT(bugprone-reserved-identifier)
    return "leak:__cxa_thread_atexit_impl\n";
}

}  // extern "C"

extern "C" {

// Each suppression names one frame that does nothing but the one lock
// operation it excuses; a deadlock report is suppressed when any of its
// stacks passes through the frame, so with second_deadlock_stack off
// (scripts/test.sh) only cycles with an edge taken in that frame are hidden.
//
// ReacquireChannelOpt: mChannelOptMutex is taken by the switch-on worker
// alone (before its queue mutex when it starts, after a step's locks when a
// wait ends), and a deadlock needs two threads, so no cycle through it can
// be waited on. Only cycles through that mutex are hidden.
//
// ListenerDeathRecipient's destructor: libutils comes uninstrumented from
// Debian, so the atomic decrement by which the last strong reference orders
// a death recipient's destruction after its other holders is invisible, and
// the destructor's write of the vtable pointer (the recipients derive
// virtually from RefBase) looks like a race with the last other holder's
// release. race_top matches only the top frame: the vtable write at the
// start of that destructor, nothing it calls or that calls it.
const char* __tsan_default_suppressions() {  // NOLINT(bugprone-reserved-identifier)
    return "deadlock:ReacquireChannelOpt\n"
           "race_top:ListenerDeathRecipient::~ListenerDeathRecipient\n";
}

}  // extern "C"
