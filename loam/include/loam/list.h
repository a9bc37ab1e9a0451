// loam/list.h - zList, a list of small values such as pointers, in the order in which they came.
#pragma once

#include "loam/heap.h"

// The same thing as zHeap, under the name that it has where order is what matters.
template <typename T>
using zList = zHeap<T>;
