#include "vnxstd/math/xform.h"

#include "vnxstd/archive/archive.h"

namespace {

template <int N>
qcArchive& serializeXform(qcArchive& archive, qcXform<N>& xform) {
  constexpr int kLine = N == 2 ? 264 : 518;  // the place that version errors name
  unsigned char version = 0;
  archive || version;
  qcArchive::checkVersion(archive, version, 0, "std/math/xform", kLine);
  qcVector<N> trans = xform.trans();
  qcMatrix<N> matrix = xform.matrix();
  archive || trans || matrix;
  if constexpr (N == 2) {
    // Any byte is accepted: it repeats what the matrix and the translation say.
    unsigned char isIdentity = xform.isIdentity() ? 1 : 0;
    archive || isIdentity;
  }
  if (archive.isLoading()) xform = qcXform<N>(matrix, trans);
  return archive;
}

}  // namespace

qcArchive& operator||(qcArchive& archive, qcXform<2>& xform) { return serializeXform(archive, xform); }
qcArchive& operator||(qcArchive& archive, qcXform<3>& xform) { return serializeXform(archive, xform); }
