// bench/floor/empty.c - the floor of any program: starts and ends.
int main(void) { return 0; }
