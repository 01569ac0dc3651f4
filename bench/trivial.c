/* The yardstick for start-up: a program that starts and exits. */
int main(void) { return 0; }
