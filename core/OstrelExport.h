#ifndef OSTREL_EXPORT_H
#define OSTREL_EXPORT_H

// The core library is built with hidden visibility: only what carries
// OSTREL_EXPORT is part of its binary interface.
#define OSTREL_EXPORT __attribute__((visibility("default")))

#endif  // OSTREL_EXPORT_H
