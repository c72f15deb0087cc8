#ifndef OSTREL_TARENA_H
#define OSTREL_TARENA_H

#include <cstddef>

namespace Ostrel {

// Memory for the parts of one parsed table (its copy of the section bytes,
// descriptors and descriptor arrays), taken from a few large blocks instead of
// one heap allocation per part: parsing a descriptor-heavy section costs a
// handful of allocations. Everything is released at once when the arena goes;
// objects placed in it must be destroyed by their owner before that (the
// arena runs no destructors). Not thread-safe; owned by its table.
class TArena {
 public:
  // firstBlock: the size of the first block, a guess of what the table needs.
  explicit TArena(size_t firstBlock = 1024);
  ~TArena();

  // Sets the size of the first block, when none is taken yet.
  void setFirstBlock(size_t size) {
    if (m_pBlocks == 0)
      m_uiNextBlock = size < 256 ? 256 : size;
  }

  // size bytes aligned for any type; throws std::bad_alloc when memory runs out.
  void* allocate(size_t size);

  // A copy of data[0..size) in the arena.
  const unsigned char* copy(const unsigned char* data, size_t size);

 private:
  TArena(const TArena&);
  TArena& operator=(const TArena&);

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
