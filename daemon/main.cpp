// Placeholder until the daemon's start-up lands.
int main() { return 0; }
