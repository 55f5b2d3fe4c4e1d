#ifndef OXLI_TEST_NATIVE_SUPPORT_NEW_FAULTS_H
#define OXLI_TEST_NATIVE_SUPPORT_NEW_FAULTS_H

namespace oxli::test {

// Fails the n-th allocation of this thread from now on, once; n counts from 1.
void failAllocationAt(int n);
// Stops failing. Returns whether the fault has happened.
bool disarmAllocations();
// Returns the allocations less the deallocations of this thread.
long liveAllocations();

}  // namespace oxli::test

#endif  // OXLI_TEST_NATIVE_SUPPORT_NEW_FAULTS_H
