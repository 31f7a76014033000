// tarn: the command-line driver, a host of the library.
int main() { return 0; }
