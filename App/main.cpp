#include <cstdio>
int main() { std::puts("motilane 0.1.0"); return 0; }
