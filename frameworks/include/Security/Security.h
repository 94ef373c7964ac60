// All of the Security framework that the layer offers.
#pragma once

#include <Security/Authorization.h>
