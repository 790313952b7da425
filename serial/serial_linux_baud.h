// Arbitrary baud rates on Linux through the kernel's termios2 interface.
//
// <asm/termbits.h> (termios2, BOTHER) cannot share a translation unit with
// <termios.h>, so these live in a small C unit of their own.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// Sets input and output speed of the open tty to exactly "baud" bits per
// second (BOTHER). Returns 0, or -1 with errno set.
int vk_linux_set_custom_baud(int fd, unsigned baud);
// Reads back the output speed in bits per second. Returns 0, or -1 with errno set.
int vk_linux_get_baud(int fd, unsigned *baud);

#ifdef __cplusplus
}
#endif
