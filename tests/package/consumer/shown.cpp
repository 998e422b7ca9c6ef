// What a module's static library shows, unless it is hidden.
extern "C" int shown_by_a_static_library() {
  return 1;
}
