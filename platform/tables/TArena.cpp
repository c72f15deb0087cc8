#include "TArena.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace Ostrel {

const size_t TArena::kMaxBlock;
const size_t TArena::kAlign;

TArena::TArena(size_t firstBlock)
    : m_pBlocks(0), m_pNext(0), m_uiLeft(0), m_uiNextBlock(firstBlock < 256 ? 256 : firstBlock) {}

TArena::~TArena() {
  while (m_pBlocks) {
    Block* next = m_pBlocks->next;
    std::free(m_pBlocks);
    m_pBlocks = next;
  }
}

void* TArena::grow(size_t size) {
  const size_t header = footprint(sizeof(Block));
  size_t blockSize = m_uiNextBlock < kMaxBlock - header ? m_uiNextBlock : kMaxBlock - header;
  if (blockSize < size)
    blockSize = size;
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
