// The face list as flat words: per face a count word, then its node indexes. The low 30 bits of a count word are the
// vertex count; the two top bits are flags that travel with the face.
#ifndef ZELFACES_H
#define ZELFACES_H

#include "zel.h"

namespace zel
{

constexpr int32_t kVertexCountMask = 0x3FFFFFFF;

inline int32_t vertex_count(int32_t count_word)
{
    return count_word & kVertexCountMask;
}

// Puts a finished, owned list of `words` words in the place of the database's faces.
void install_faces(ZELDATA* db, int32_t* list, int32_t faces, int32_t words, int32_t capacity);

} // namespace zel

#endif
