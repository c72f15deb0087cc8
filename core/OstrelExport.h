#ifndef OSTREL_EXPORT_H
#define OSTREL_EXPORT_H

// The core library is built with hidden visibility: only what carries
// OSTREL_EXPORT is part of its binary interface. OSTREL_LOCAL keeps a private
// member of an exported class out of it.
#define OSTREL_EXPORT __attribute__((visibility("default")))
#define OSTREL_LOCAL __attribute__((visibility("hidden")))

#endif  // OSTREL_EXPORT_H
