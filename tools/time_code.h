#ifndef FRAMEHUB_TOOLS_TIME_CODE_H
#define FRAMEHUB_TOOLS_TIME_CODE_H

#include <cstdint>

// Milliseconds since the epoch, modulo 2^32, as 32 black or white cells
// across the top sixteenth of a picture: drawn into the feed, read back from
// a decoded grey picture to measure how old a frame is when it arrives.
void drawTimeCode(unsigned char* rgb, int width, int height, uint32_t milliseconds);
uint32_t readTimeCode(const unsigned char* gray, int width, int height, int stride);

#endif
