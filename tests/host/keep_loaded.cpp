// Preloaded into the viewer under test: libraries are never unloaded. Mesa's X11 driver, unloaded
// when the window system shuts down, takes with it the only references to memory it still holds,
// and LeakSanitizer would then report that memory (attributed to no module it can name) as leaked.
// With the driver kept, every leak LeakSanitizer reports is a real one.
extern "C" __attribute__((visibility("default"))) int dlclose(void*) { return 0; }
