// Built into every test binary: what the sanitizers must know about the
// library's deliberate process-lifetime objects, lock patterns and
// uninstrumented platform libraries.

extern "C" {

// The channel service is never destroyed and is pinned by one strong
// reference that is never released, so that reference counting can never
// delete it either: what its construction allocates lives as long as the
// process. With this removed, the sequence fuzzer once reported a 32-byte
// leak whose stack was not kept; the suppression stays until one is.
const char* __lsan_default_suppressions() {  // NOLINT(bugprone-reserved-identifier)
    return "leak:CreateVirtualCameraStreamChange\n";
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
