#include "platforms/registry.h"

#include "ag33xx/ag33xx.h"
#include "dw2207b/dw2207b.h"
#include "hd8xxx/hd8xxx.h"
#include "mj7xxx/mj7xxx.h"
#include "rz610mxxxx/rz610mxxxx.h"
#include "sta8100/sta8100.h"
#include "tq934n/tq934n.h"

namespace {

// Model names: each platform's first name is the platform's own name, the
// rest are numbered variants. Entries of platforms not served yet stay null,
// so their models end in the "Please input param" error.
constexpr const char *kHd8xxxModels[] = {
    "HD8XXX",    "HD8XXX-01", "HD8XXX-02", "HD8XXX-03", "HD8XXX-04", "HD8XXX-05",
    "HD8XXX-06", "HD8XXX-07", "HD8XXX-08", "HD8XXX-09", "HD8XXX-10", "HD8XXX-11",
    "HD8XXX-12", "HD8XXX-13", "HD8XXX-14", "HD8XXX-15", "HD8XXX-16", "HD8XXX-17",
    "HD8XXX-18", "HD8XXX-19", "HD8XXX-20", "HD8XXX-21", "HD8XXX-22"};
constexpr const char *kAg33xxModels[] = {
    "AG33XX",    "AG33XX-01", "AG33XX-02", "AG33XX-03", "AG33XX-04", "AG33XX-05", "AG33XX-06",
    "AG33XX-07", "AG33XX-08", "AG33XX-09", "AG33XX-10", "AG33XX-11", "AG33XX-12", "AG33XX-13",
    "AG33XX-14", "AG33XX-15", "AG33XX-16", "AG33XX-17", "AG33XX-18", "AG33XX-19", "AG33XX-20",
    "AG33XX-21", "AG33XX-22", "AG33XX-23", "AG33XX-24", "AG33XX-25", "AG33XX-26", "AG33XX-27",
    "AG33XX-28", "AG33XX-29", "AG33XX-30", "AG33XX-31", "AG33XX-32"};
constexpr const char *kSta8100Models[] = {
    "STA8100",    "STA8100-01", "STA8100-02", "STA8100-03", "STA8100-04", "STA8100-05",
    "STA8100-06", "STA8100-07", "STA8100-08", "STA8100-09", "STA8100-10", "STA8100-11",
    "STA8100-12", "STA8100-13", "STA8100-14", "STA8100-15", "STA8100-16", "STA8100-17",
    "STA8100-18", "STA8100-19", "STA8100-20", "STA8100-21", "STA8100-22", "STA8100-23",
    "STA8100-24", "STA8100-25", "STA8100-26", "STA8100-27"};
constexpr const char *kRz610mxxxxModels[] = {"RZ610MXXXX"};
constexpr const char *kMj7xxxModels[] = {"MJ7XXX", "MJ7XXX-01"};
constexpr const char *kTq934nModels[] = {"TQ934N", "TQ934N-01"};
constexpr const char *kDw2207bModels[] = {"DW2207B"};

const VkPlatform kPlatforms[] = {
    {.name = "HD8XXX",
     .models = kHd8xxxModels,
     .online = HD8XXX_AgnssOnline,
     .offline = HD8XXX_AgnssOffline},
    {.name = "AG33XX",
     .models = kAg33xxModels,
     .online = AG33XX_AgnssOnline,
     .offline = AG33XX_AgnssOffline,
     .info = AG33XX_AgnssGetFileInfo},
    // One entry serves both modes.
    {.name = "STA8100",
     .models = kSta8100Models,
     .online = STA8100_AgnssOnline,
     .offline = STA8100_AgnssOnline},
    {.name = "RZ610MXXXX",
     .models = kRz610mxxxxModels,
     .online = RZ610MXXXX_AgnssOnline,
     .offline = RZ610MXXXX_AgnssOffline},
    {.name = "MJ7XXX", .models = kMj7xxxModels, .online = MJ7XXX_AgnssOnline},
    {.name = "TQ934N",
     .models = kTq934nModels,
     .online = TQ934N_AgnssOnline,
     .offline = TQ934N_AgnssOnline},
    // The platform's one entry takes the online slot.
    {.name = "DW2207B", .models = kDw2207bModels, .online = DW2207B_AgnssOffline},
};

}  // namespace

std::span<const VkPlatform> vk_registry() { return kPlatforms; }
