// A shared object that needs another one, in a folder beside it.

extern "C" int tarvexNeeded();
extern "C" int tarvexNeeding();

extern "C" __attribute__((visibility("default"))) int tarvexNeeding() {
  return tarvexNeeded();
}
