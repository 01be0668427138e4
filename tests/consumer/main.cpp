// Smallest program built against an installed IgpCommon: it must compile with only the installed
// headers, link against libIgpCommon.so and run.
#include "IgpCommon/IgpLsp.h"

#include <cstdio>

int main(int argc, char** argv) {
    // The assertion references Kest::assertFail, so the program only links if the library exports it.
    KEST_ASSERT_MSG(argc >= 1 && argv[0] != nullptr, "a process is started with its own name");
    std::puts("IgpCommon consumer: ok");
    return 0;
}
