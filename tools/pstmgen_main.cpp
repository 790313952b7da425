// vkagnss-pstmgen: writes a deterministic "PSTMEPHEM" ephemeris text file
// for tests, demos and benchmarks. The command line lives in the library
// (pstmgen_main) so that the unit tests can run it without a child process.
#include "tools/pstm_gen.h"

int main(int argc, char **argv) { return pstmgen_main(argc, argv); }
