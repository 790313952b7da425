#include "core/result.h"
#include "platforms/entry.h"
#include "platforms/registry.h"

int main(int argc, char **argv) { return vk_exit_status(vk_main(argc, argv, vk_registry())); }
