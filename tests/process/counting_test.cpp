// The tracker against an independent counter in the same process.
#include "tests/process/child_process.h"

TEST(Counting, AgreesToTheByteAndBlockWithAnIndependentCounter) {
    // Two reports with six columns each, two with two, and two statistics.
    expect({"tracked_host count", "", "(equal [^\n]*\n){18}"});
}
