#pragma once

/// Everything of the data-array library but its protobuf layer, which kestreldata/SerializationContext.hpp
/// adds together with the protobuf headers.

#include "kestreldata/Array.hpp"
#include "kestreldata/ArrayFactory.hpp"
#include "kestreldata/ArrayType.hpp"
#include "kestreldata/CharArray.hpp"
#include "kestreldata/ElementReference.hpp"
#include "kestreldata/ElementTraits.hpp"
#include "kestreldata/Exceptions.hpp"
#include "kestreldata/Text.hpp"
#include "kestreldata/TypedArray.hpp"
