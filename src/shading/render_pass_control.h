#pragma once
// The render pass the renderer is producing, read by every material and
// light while shading. Set by the renderer before a render starts and left
// alone while it runs, so shading reads it without a lock.
//
//   0  full shading
//   1  as 0, lights drop their shadows
//   2  ambient only, no light loop, no incandescence; no shadows
//   3  as 0 without shadows; specular materials add only their reflection
//   4  nothing but the specular term of specular materials; no shadows
//   5  shadow pass: the matte opacity carries the shadowed fraction
extern int currentRenderPassControl;

enum TrenderPass : int {
    kPassFull = 0,
    kPassNoShadows = 1,
    kPassAmbientOnly = 2,
    kPassNoSpecular = 3,
    kPassSpecularOnly = 4,
    kPassShadow = 5,
};
