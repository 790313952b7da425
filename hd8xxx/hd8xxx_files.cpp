#include "hd8xxx/hd8xxx_files.h"

#include <cstdio>
#include <cstring>
#include <initializer_list>

#include "core/log.h"
#include "toolkit/gnss_time.h"
#include "toolkit/tempfile.h"
#include "toolkit/text.h"

bool hd8xxx_size_and_name(const char *path, uint32_t *size, char *dir, char *name) {
    if (!vk_path_size(path, size)) return false;
    Vk_SplitFilenameAndPath(path, dir, name);
    return true;
}

HdTempPair::HdTempPair(const char *dir, const char *gps_name, const char *bds_name)
    : gps(std::string(dir) + gps_name), bds(std::string(dir) + bds_name) {
    for (const std::string *p : {&gps, &bds}) {
        remove(p->c_str());
        vk_temp_file_add(p->c_str());
    }
}

HdTempPair::~HdTempPair() {
    vk_temp_file_remove(gps.c_str());
    vk_temp_file_remove(bds.c_str());
}
