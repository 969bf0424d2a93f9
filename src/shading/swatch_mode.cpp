#include "shading/swatch_mode.h"

bool inSampleSwatchMode = false;
