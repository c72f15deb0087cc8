#include "TArena.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace Ostrel {

namespace {

// Alignment of every block and object: enough for what the table library
// places here (pointers, long long), on 32-bit targets as on 64-bit ones.
const size_t kAlign = 8;

size_t roundUp(size_t n) {
  return (n + kAlign - 1) & ~(kAlign - 1);
}

}  // namespace

TArena::TArena(size_t firstBlock)
    : m_pBlocks(0), m_pNext(0), m_uiLeft(0), m_uiNextBlock(firstBlock < 256 ? 256 : firstBlock) {}

TArena::~TArena() {
  while (m_pBlocks) {
    Block* next = m_pBlocks->next;
    std::free(m_pBlocks);
    m_pBlocks = next;
  }
}

void* TArena::allocate(size_t size) {
  size = roundUp(size == 0 ? 1 : size);
  if (size > m_uiLeft)
    return grow(size);
  void* p = m_pNext;
  m_pNext += size;
  m_uiLeft -= size;
  return p;
}

void* TArena::grow(size_t size) {
  size_t header = roundUp(sizeof(Block));
  size_t blockSize = m_uiNextBlock > size ? m_uiNextBlock : size;
  if (blockSize > static_cast<size_t>(-1) - header)
    throw std::bad_alloc();
  Block* block = static_cast<Block*>(std::malloc(header + blockSize));
  if (block == 0)
    throw std::bad_alloc();
  block->next = m_pBlocks;
  m_pBlocks = block;
  m_pNext = reinterpret_cast<unsigned char*>(block) + header + size;
  m_uiLeft = blockSize - size;
  m_uiNextBlock = blockSize * 2;
  return reinterpret_cast<unsigned char*>(block) + header;
}

const unsigned char* TArena::copy(const unsigned char* data, size_t size) {
  unsigned char* p = static_cast<unsigned char*>(allocate(size));
  if (size)
    std::memcpy(p, data, size);
  return p;
}

}  // namespace Ostrel
