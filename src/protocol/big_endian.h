#pragma once
#include "clients/big_endian.h"
