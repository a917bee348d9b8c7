// The least a program can cost: started and ended.
int main(void) { return 0; }
