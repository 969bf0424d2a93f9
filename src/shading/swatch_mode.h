#pragma once
// Whether the render under way is a swatch: a node previewed on a small
// object, where some nodes scale what they measure so that the preview
// shows their effect. Set by the swatch renderer around its render and
// left alone while it runs, so shading reads it without a lock.
extern bool inSampleSwatchMode;
