// Built into every test binary: what the sanitizers must know about the
// library's deliberate process-lifetime objects.

extern "C" {

// The channel service is a function-local static pinned by one strong
// reference that is never released, so that reference counting can never
// delete a static. Its reference-count block therefore outlives the object
// at exit, by design.
const char* __lsan_default_suppressions() {
    return "leak:CreateVirtualCameraStreamChange\n";
}

}  // extern "C"

extern "C" {

// A switch step waits on its condition variable holding the async-info lock,
// so waking up takes the step's lock under it: the reverse of the order in
// which the wait began. The notifiers only try_lock the async-info lock while
// they hold a step's lock, which cannot block, so the cycle that the
// lock-order detector sees is never waited on.
//
// libutils comes uninstrumented from Debian: the atomic decrement through
// which the last strong reference orders the destruction of a RefBase object
// after its other users is invisible here, so the destructor it runs looks
// like a race with them.
const char* __tsan_default_suppressions() {
    return "deadlock:WaitForChannelOptReturnLocked\n"
           "race:android::RefBase::decStrong\n";
}

}  // extern "C"
