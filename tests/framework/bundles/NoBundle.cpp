// A shared object that lies among bundles and is none.
extern "C" __attribute__((visibility("default"))) int answer() {
  return 42;
}
