"""A lookdev loop: swap the floor's checker for other textures, render each
small, and say how far each one moves the image from the original."""
import numpy as np

import shadenet

scene = shadenet.Scene.load("examples/showcase.json")
before = scene.render(resolution=(160, 120), spp=1)
current = "floorChecker"
for texture in ["grid", "cloth", "fractal"]:
    name = scene.create(texture, "floor_" + texture)
    scene.connect("floorPlace.outUV", name + ".uvCoord")
    scene.disconnect(current + ".outColor", "floorMat.color")
    scene.connect(name + ".outColor", "floorMat.color")
    current = name
    after = scene.render(resolution=(160, 120), spp=1)
    changed = np.abs(after[..., :3] - before[..., :3]).max(axis=2) > 1e-3
    print(f"{texture:8s} changes {changed.mean():6.1%} of the pixels, mean difference {np.abs(after - before).mean():.4f}")
