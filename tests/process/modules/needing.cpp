// A library that needs another one. With QOV_TEST_GONE it is the other one, which nobody finds.
#ifdef QOV_TEST_GONE
int qovTestGone() {
  return 1;
}
#else
int qovTestGone();
int qovTestNeeding() {
  return qovTestGone();
}
#endif
