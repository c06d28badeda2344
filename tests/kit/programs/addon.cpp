// The least that can be loaded.
extern "C" int kit_test_answer() {
    return 42;
}
