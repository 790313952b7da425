// vkagnss-hdbgen: writes a deterministic HD8XXX ".hdb" ephemeris file for
// tests, demos and benchmarks. The command line lives in the library
// (hdbgen_main) so that the unit tests can run it without a child process.
#include "tools/hdb_gen.h"

int main(int argc, char **argv) { return hdbgen_main(argc, argv); }
