#include "scene/scene_shapes.h"

SN_REGISTER_NODE_CLASS(TsphereShape)
SN_REGISTER_NODE_CLASS(TplaneShape)
SN_REGISTER_NODE_CLASS(TboxShape)
SN_REGISTER_NODE_CLASS(TdiscShape)
SN_REGISTER_NODE_CLASS(TmeshShape)
