#include "surfacefixture.h"
