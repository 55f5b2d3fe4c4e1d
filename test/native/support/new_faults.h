#ifndef OXLI_TEST_NATIVE_SUPPORT_NEW_FAULTS_H
#define OXLI_TEST_NATIVE_SUPPORT_NEW_FAULTS_H

namespace oxli::test {

// The n-th allocation of this thread from now on fails, once; n counts from 1.
void failAllocationAt(int n);
// Stops failing; whether the fault has happened.
bool disarmAllocations();

}  // namespace oxli::test

#endif  // OXLI_TEST_NATIVE_SUPPORT_NEW_FAULTS_H
