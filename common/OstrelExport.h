#ifndef OSTREL_EXPORT_H
#define OSTREL_EXPORT_H

// The core library is built with hidden visibility: only what carries
// OSTREL_EXPORT is part of its binary interface. Members of an exported class
// that are no part of it (private helpers) carry OSTREL_LOCAL.
#define OSTREL_EXPORT __attribute__((visibility("default")))
#define OSTREL_LOCAL __attribute__((visibility("hidden")))

#endif  // OSTREL_EXPORT_H
