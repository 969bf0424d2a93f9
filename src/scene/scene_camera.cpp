#include "scene/scene_camera.h"

SN_REGISTER_NODE_CLASS(Tcamera)
