#ifndef OSTREL_TARENA_H
#define OSTREL_TARENA_H

#include <cstddef>

namespace Ostrel {

// Memory for the parts of one parsed table (its copy of the section bytes,
// descriptors and descriptor arrays), taken from a few blocks instead of one
// heap allocation per part: parsing a descriptor-heavy section costs a
// handful of allocations. Blocks are at most kMaxBlock bytes unless one
// allocation needs more: glibc serves blocks of up to about 1 KiB from
// per-thread caches, larger ones through a slower path that first merges the
// chunks freed meanwhile (a tenth of the instructions of a 288-byte PMT's
// parse when its table took one 2 KiB block). Everything is released at once
// when the arena goes; objects placed in it must be destroyed by their owner
// before that (the arena runs no destructors). Not thread-safe; owned by its
// table.
class TArena {
 public:
  // Largest block, allocator header of our own included.
  static const size_t kMaxBlock = 1024;

  // firstBlock: the size of the first block, a guess of what the table needs.
  explicit TArena(size_t firstBlock = 1024);
  ~TArena();

  // Sets the size of the first block (within kMaxBlock), when none is taken yet.
  void setFirstBlock(size_t size) {
    if (m_pBlocks == 0)
      m_uiNextBlock = size < 256 ? 256 : size;
  }

  // size bytes aligned for any type; throws std::bad_alloc when memory runs out.
  // Inline: most allocations are a bump of the current block.
  void* allocate(size_t size) {
    size = footprint(size);
    if (size > m_uiLeft)
      return grow(size);
    void* p = m_pNext;
    m_pNext += size;
    m_uiLeft -= size;
    return p;
  }

  // The arena space that allocate(size) takes: size rounded up to the
  // alignment, at least one unit. Lets a parser size the first block exactly.
  static size_t footprint(size_t size) {
    return size == 0 ? kAlign : (size + kAlign - 1) & ~(kAlign - 1);
  }

  // A copy of data[0..size) in the arena.
  const unsigned char* copy(const unsigned char* data, size_t size);

 private:
  TArena(const TArena&);
  TArena& operator=(const TArena&);

  // Alignment of every block and object: enough for what the table library
  // places here (pointers, long long), on 32-bit targets as on 64-bit ones.
  static const size_t kAlign = 8;

  struct Block {
    Block* next;
  };
  void* grow(size_t size);

  Block* m_pBlocks;
  unsigned char* m_pNext;
  size_t m_uiLeft;
  size_t m_uiNextBlock;
};

}  // namespace Ostrel

#endif  // OSTREL_TARENA_H
