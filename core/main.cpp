#include "core/platform.h"

int main(int argc, char **argv) { return vk_exit_status(vk_main(argc, argv)); }
