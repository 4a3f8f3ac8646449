// A shared object that lies among bundles and is none. Whoever loads it can tell.
#include <cstdlib>

__attribute__((constructor)) static void leaveATrace() {
  setenv("KESTREL_TEST_NO_BUNDLE_RAN", "yes", 1);
}
