// A shared object that another one needs.

extern "C" int tarvexNeeded();

extern "C" __attribute__((visibility("default"))) int tarvexNeeded() {
  return 1;
}
