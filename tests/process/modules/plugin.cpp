// A plug-in, which nothing pins in memory.
extern "C" int qov_test_plugin() {
  return 1;
}
