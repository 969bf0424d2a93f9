#include "volumes/volume_shader.h"

SN_REGISTER_NODE_CLASS(TdnVolumeShader)
