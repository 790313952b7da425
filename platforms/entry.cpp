#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "core/interrupt.h"
#include "core/log.h"
#include "core/number.h"
#include "core/result.h"
#include "platforms/entry.h"
#include "serial/serial.h"

namespace {

constexpr char kVersion[] = "V1.1.1";

#ifdef VK_VERSION
// The banner and the package carry one version: the project's.
constexpr bool same_text(const char *a, const char *b) {
    for (; *a != '\0' && *a == *b; ++a, ++b) {}
    return *a == *b;
}
static_assert(kVersion[0] == 'V' && same_text(kVersion + 1, VK_VERSION),
              "the banner's version differs from the project's version");
#endif

const char *compiler_name() {
#if defined(__clang__)
    return "clang " __clang_version__;
#elif defined(__GNUC__)
    return "GCC " __VERSION__;
#elif defined(_MSC_VER)
    return "MSVC";
#else
    return "unknown compiler";
#endif
}

const char *os_name() {
#if defined(_WIN32)
    return "Windows";
#elif defined(__linux__)
    return "Linux";
#elif defined(__APPLE__)
    return "macOS";
#else
    return "POSIX";
#endif
}

void print_version() {
    printf("vkagnss %s (built %s %s, %s, %s)\n", kVersion + 1, __DATE__, __TIME__, compiler_name(),
           os_name());
}

// The modes a platform serves, as its entries say.
std::string modes_of(const VkPlatform &p) {
    std::string modes;
    auto add = [&modes](const char *mode) {
        if (!modes.empty()) modes += ", ";
        modes += mode;
    };
    if (p.online) add("online");
    if (p.offline) add("offline");
    if (p.info) add("file information (-m MODEL -fFILE alone)");
    return modes;
}

void print_usage(std::span<const VkPlatform> platforms) {
    printf(
        "Usage: vkagnss -m MODEL -o online|offline -p PORT -b BAUD [options]\n"
        "       vkagnss -m AG33XX -fFILE[,FILE[,FILE]]   show what EPO files hold\n"
        "       vkagnss -S x                             list every model name\n"
        "       vkagnss --help | -h                      this text\n"
        "       vkagnss --version | -V                   version and build\n"
        "\n"
        "Injects assistance data (time, position, ephemeris or EPO files) into a\n"
        "GNSS receiver module over a serial port.\n"
        "\n"
        "Platforms and the modes each serves:\n");
    for (const VkPlatform &p : platforms) printf("  %-11s %s\n", p.name, modes_of(p).c_str());
    printf(
        "\n"
        "Options:\n"
        "  -m MODEL    module model (vkagnss -S x lists the names)\n"
        "  -o MODE     online or offline\n"
        "  -p PORT     serial port: /dev/ttyUSB0, ttyUSB0, COM3\n"
        "  -b BAUD     baud rate\n"
        "  -R N, -T N  RTS and DTR levels set when the port opens\n"
        "  -sWAY       start way: NONE, HOT, WARM, COLD\n"
        "  -uTYPE,UTC,LEAP,ACC   time aiding (TYPE 0: the UTC given as\n"
        "              year-month-day-hour:minute:second, 1: the computer's clock)\n"
        "  -lLAT,LON,ALT,ACC     position aiding in decimal degrees\n"
        "  -fFILE      ephemeris or EPO file (AG33XX, RZ610MXXXX: up to three,\n"
        "              separated by commas)\n"
        "  -c          offline: clear the data stored in the receiver first\n"
        "  -q          HD8XXX, STA8100, TQ934N: stop after the file's summary\n"
        "  -t TYPE     STA8100: firmware type, nmea or rtcm\n"
        "  -A TYPE,LAT,LON,ALT,UTC0,LEAP  MJ7XXX: initial aiding\n"
        "\n"
        "-m, -o, -R and -T take their value as the next word. AG33XX, RZ610MXXXX\n"
        "and DW2207B take the values of -s, -u, -l and -f only when attached, as\n"
        "above: -sCOLD, -fVGPS.DAT. The other platforms also take them as the\n"
        "next word: -s COLD. A word that no option takes ends the options; it is\n"
        "reported on standard error.\n"
        "\n"
        "Examples:\n"
        "  vkagnss -m AG33XX -o offline -p /dev/ttyUSB0 -b 921600 -c -fEPO_GPS_3_1.DAT\n"
        "  vkagnss -m DW2207B -o online -p COM3 -b 115200 -sHOT -l31.5,121.25,10,5\n"
        "  vkagnss -m HD8XXX -o offline -p /dev/ttyUSB0 -b 115200 -c -s COLD -f EPH_GPS_BDS.rtcm\n"
        "\n"
        "The last line is SUCCESS or FAIL with the result code; the exit status\n"
        "is 0 only on success. Every platform's options, files, result codes and\n"
        "exit statuses: man vkagnss\n");
}

// Copies at most keep characters of the value after argv[i], if there is one:
// an option standing last on the command line counts as not given.
const char *value_after(int argc, char **argv, int i) {
    return (i + 1 < argc) ? argv[i + 1] : nullptr;
}

void copy_value(char *dst, size_t keep, const char *value) {
    if (value == nullptr) return;
    strncpy(dst, value, keep);
    dst[keep] = '\0';
}

void print_supported_models(std::span<const VkPlatform> platforms) {
    printf("Supported module:\n");
    for (const VkPlatform &p : platforms)
        for (const char *model : p.models) printf("%s\n", model);
    fflush(stdout);
}

// The name table of each platform ends in empty slots, so an empty model
// name matches the first platform.
bool serves_model(const VkPlatform &p, const char *model) {
    if (model[0] == '\0') return true;
    for (const char *name : p.models)
        if (strcmp(name, model) == 0) return true;
    return false;
}

}  // namespace

uint32_t vk_main(int argc, char **argv, std::span<const VkPlatform> platforms) {
    // Help and version stand alone on the command line; anything more is a run.
    if (argc == 2 && (strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0)) {
        print_usage(platforms);
        fflush(stdout);
        return VK_OK;
    }
    if (argc == 2 && (strcmp(argv[1], "--version") == 0 || strcmp(argv[1], "-V") == 0)) {
        print_version();
        fflush(stdout);
        return VK_OK;
    }
    flash_tool_msecs();  // fixes the origin of every stamp
    vk_interrupt_install();
    vk_log("[INFO] %s %s %s\n", kVersion, __DATE__, __TIME__);
    vk_log("[INFO] Enter agnss tool\n");

    uint32_t result = VK_ERR_NO_BACKEND;
    if (argc <= 2) {
        vk_log("[ERROR] Please input param , example ./vkagnss.exe -m AG33XX -p COM3\n");
        return result;
    }

    char model[16] = {0};
    char mode[8] = {0};
    int rts = 0, dtr = 0;
    for (int i = 1; i < argc; ++i) {
        const char *value = value_after(argc, argv, i);
        if (strcmp(argv[i], "-m") == 0) {
            copy_value(model, sizeof model - 1, value);
        } else if (strcmp(argv[i], "-o") == 0) {
            copy_value(mode, sizeof mode - 1, value);
        } else if (strcmp(argv[i], "-R") == 0) {
            if (value) rts = vk_atoi(value);
            vk_log("[INFO] RTS :%d\n", rts);
        } else if (strcmp(argv[i], "-T") == 0) {
            if (value) dtr = vk_atoi(value);
            vk_log("[INFO] DTR :%d\n", dtr);
        } else if (strcmp(argv[i], "-S") == 0) {
            print_supported_models(platforms);
            return 0;
        }
    }
    Vk_Uart_ConfigDtrRts(uint32_t(dtr), uint32_t(rts));

    const VkPlatform *platform = nullptr;
    for (const VkPlatform &p : platforms) {
        if (serves_model(p, model)) {
            platform = &p;
            break;
        }
    }
    if (platform == nullptr) {
        vk_log("[ERROR] Not support %s or not support Offline Agnss\n", model);
    } else if (strcmp(mode, "online") == 0 && platform->online) {
        result = platform->online(argc, argv);
    } else if (strcmp(mode, "offline") == 0 && platform->offline) {
        result = platform->offline(argc, argv);
    } else if (argc == 4 && platform->info) {
        result = platform->info(argc, argv);
    } else {
        vk_log("[ERROR] Please input param , example ./vkagnss -m %s -o online\n",
               platform->models[0]);
    }

    vk_log_outcome(result);
    return result;
}
