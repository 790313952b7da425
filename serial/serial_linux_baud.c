// termios2 / BOTHER: kept apart from every <termios.h> user (see the header).
#include "serial/serial_linux_baud.h"

#include <asm/ioctls.h>
#include <asm/termbits.h>
#include <sys/ioctl.h>

int vk_linux_set_custom_baud(int fd, unsigned baud) {
    struct termios2 t;
    if (ioctl(fd, TCGETS2, &t) != 0) return -1;
    t.c_cflag &= ~(tcflag_t)CBAUD;
    t.c_cflag |= BOTHER;
    t.c_ospeed = baud;
    /* Input speed follows the output speed. */
    t.c_cflag &= ~(tcflag_t)(CBAUD << IBSHIFT);
    t.c_ispeed = baud;
    if (ioctl(fd, TCSETS2, &t) != 0) return -1;
    return 0;
}

int vk_linux_get_baud(int fd, unsigned *baud) {
    struct termios2 t;
    if (ioctl(fd, TCGETS2, &t) != 0) return -1;
    *baud = t.c_ospeed;
    return 0;
}
