#pragma once
// The pass the renderer is making, read by every material and light while
// it shades: 0 full, 1 to 4 without shadows (4 specular only), 5 the shadow
// pass. Set by the renderer before shading starts; read without a lock.
extern int currentRenderPassControl;
