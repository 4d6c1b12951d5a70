// A library without a plugin.
extern "C" int noPlugin() { return 0; }
