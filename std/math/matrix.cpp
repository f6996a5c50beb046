#include "vnxstd/math/matrix.h"

#include "vnxstd/archive/archive.h"

template <int N>
struct qc_MatrixArchive {
  static qcArchive& serialize(qcArchive& archive, qcMatrix<N>& m) {
    constexpr int kLine = N == 2 ? 421 : 873;  // the place that version errors name
    unsigned char version = 0;
    archive || version;
    qcArchive::checkVersion(archive, version, 0, "std/math/matrix", kLine);
    qcMatrix<N> copy = m;
    archive.block(copy.a_, N * N);
    archive || copy.det_;
    if (archive.isLoading()) m = copy;
    return archive;
  }
};

qcArchive& operator||(qcArchive& archive, qcMatrix<2>& m) { return qc_MatrixArchive<2>::serialize(archive, m); }
qcArchive& operator||(qcArchive& archive, qcMatrix<3>& m) { return qc_MatrixArchive<3>::serialize(archive, m); }
