// test_headers.cpp - the program whose precompiled headers all test programs use.

int main() {}
