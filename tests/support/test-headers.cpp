// All tests use the precompiled headers of this program.
int main() {}
