#include "lights/render_pass_control.h"

int currentRenderPassControl = 0;
