// Exceptions: the root of every error, the catalogue of error numbers, status codes turned into exceptions.
#pragma once

#include "vnxstd/except/catalogue.h"
#include "vnxstd/except/exception.h"
#include "vnxstd/except/failure.h"
#include "vnxstd/except/loadcontext.h"
#include "vnxstd/except/pelerrors.h"
#include "vnxstd/except/typename.h"
