// Has a program that ends by `_exit`, without its destructors, write down which lines ran; the linker has the calls
// arrive here (`--wrap`). Only in the coverage build.
extern "C" {
void __gcov_dump();
[[noreturn]] void __real__exit(int status);
[[noreturn]] void __wrap__exit(int status);

void __wrap__exit(int status) {
  __gcov_dump();
  __real__exit(status);
}
}
