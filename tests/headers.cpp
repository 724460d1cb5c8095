// Holds the precompiled headers of the test programs, as a program: they are compiled alike.
int main() {}
