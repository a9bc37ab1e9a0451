// fake_helper.cpp - stands where a host looks for the runtime's helper program; all is well with
// it.
int main() { return 0; }
