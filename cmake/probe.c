/* Runs only where the kernel executes programs of this build's ABI. */
int main(void) { return 0; }
