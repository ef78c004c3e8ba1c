// Start-up anchor: a program that does nothing, linked to OpenCV modules by
// the build (which set of modules is the build's choice), so that its run
// time is the cost of loading them.
int main() { return 0; }
