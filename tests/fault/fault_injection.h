// Link-time fault injection for the fault_tests binary, which is linked with
// --wrap=malloc, --wrap=calloc and --wrap=pthread_create. Only calls made from
// code linked into that binary are seen (the library's code, not libc++).
#ifndef DOFRA_TESTS_FAULT_INJECTION_H
#define DOFRA_TESTS_FAULT_INJECTION_H

namespace fault {

// The nth malloc or calloc call (counted together, from 1) after this call
// returns null. 0 disarms.
void FailAllocation(int nth);
// The nth pthread_create call after this call fails with `error`. 0 disarms.
void FailThreadCreate(int nth, int error);
// Disarms both and clears the counters.
void Reset();
// malloc and calloc calls seen since the last Reset or arming.
int AllocationCount();

// Disarms on scope exit.
struct Guard {
  ~Guard() { Reset(); }
};

}  // namespace fault

#endif  // DOFRA_TESTS_FAULT_INJECTION_H
