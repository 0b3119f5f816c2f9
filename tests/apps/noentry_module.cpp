// A loadable module that exports something, but not the plug-in entry function.
extern "C" int notAPluginEntry() {
    return 0;
}
