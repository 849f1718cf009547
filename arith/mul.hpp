// The product kernel, under the name the division still includes it by.
#pragma once

#include "arith/multiply.hpp"
