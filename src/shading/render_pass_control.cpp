#include "shading/render_pass_control.h"

int currentRenderPassControl = kPassFull;
