#ifndef OXLI_TEST_NATIVE_SUPPORT_NEW_FAULTS_H
#define OXLI_TEST_NATIVE_SUPPORT_NEW_FAULTS_H

namespace oxli::test {

// Fails, once, the n-th of the following allocations of this thread; n counts from 1.
void failAllocationAt(int n);
// Cancels the fault if it has not happened. Returns whether it has happened.
bool disarmAllocations();
// Returns the number of allocations minus the number of deallocations of this thread.
long liveAllocations();

}  // namespace oxli::test

#endif  // OXLI_TEST_NATIVE_SUPPORT_NEW_FAULTS_H
