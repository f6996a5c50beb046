#include "vnxstd/archive/observer.h"

qcArchiveObserver::~qcArchiveObserver() = default;
void qcArchiveObserver::numbers(Span, qcArchive::Number, unsigned, const void*, std::size_t) {}
void qcArchiveObserver::text(Span, std::string_view) {}
void qcArchiveObserver::record(const qcArchiveRecord&) {}
void qcArchiveObserver::beginObject(Span, const std::type_info&) {}
void qcArchiveObserver::endObject() {}
void qcArchiveObserver::beginLevel(Span, const std::type_info&, unsigned char) {}
void qcArchiveObserver::endLevel() {}
