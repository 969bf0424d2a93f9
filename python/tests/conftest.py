# Shared set-up of the Python suite: where the program and the examples are,
# and a small scene whose pixels have a closed form.
import json
import os
import subprocess

import pytest

SOURCE_DIR = os.environ.get("SHADENET_SOURCE_DIR", os.path.join(os.path.dirname(__file__), "..", ".."))
CLI = os.environ.get("SHADENET_CLI", os.path.join(SOURCE_DIR, "build", "bin", "shadenet"))


def run_cli(*args, cwd=None):
    return subprocess.run([CLI, *map(str, args)], capture_output=True, text=True, cwd=cwd)


def read_exr(path):
    """An EXR as an h x w x 4 float32 array, rows from the top, from
    oiiotool's text dump: a road that shares no code with the module's. The
    dump has nine decimals, so compare with same_pixels."""
    import numpy as np

    dump = subprocess.run(["oiiotool", "--dumpdata", str(path)], check=True, capture_output=True, text=True).stdout
    pixels = {}
    for line in dump.splitlines():
        line = line.strip()
        if line.startswith("Pixel ("):
            where, values = line[len("Pixel ("):].split("):")
            x, y = map(int, where.split(","))
            pixels[(y, x)] = [float(v) for v in values.split()]
    height = max(y for y, _ in pixels) + 1
    width = max(x for _, x in pixels) + 1
    image = np.zeros((height, width, 4), dtype=np.float32)
    for (y, x), value in pixels.items():
        image[y, x, : len(value)] = value
    return image


def same_pixels(exr_image, image):
    """Equal but for the dump's nine decimals (and float32's own last bit)."""
    import numpy as np

    np.testing.assert_allclose(exr_image, image, rtol=2e-7, atol=5e-10)


# A plane seen straight down by an orthographic camera that it fills, lit
# head-on by a directional light: each pixel is color * diffuse * intensity.
FLAT_SCENE = {
    "format": "shadenet-scene",
    "version": 1,
    "nodes": [
        {"type": "transform", "name": "camXf", "attributes": {"translate": [0, 5, 0], "rotate": [-90, 0, 0]}},
        {"type": "camera", "name": "cam", "parent": "camXf", "attributes": {"orthographic": True, "orthographicWidth": 4}},
        {"type": "resolution", "name": "defaultResolution", "attributes": {"width": 12, "height": 8}},
        {"type": "renderQuality", "name": "defaultRenderQuality", "attributes": {"edgeAntiAliasing": 3}},
        {"type": "transform", "name": "sunXf", "attributes": {"rotate": [-90, 0, 0]}},
        {"type": "directionalLight", "name": "sun", "parent": "sunXf", "attributes": {"intensity": 1.5}},
        {"type": "transform", "name": "floorXf"},
        {"type": "plane", "name": "floor", "parent": "floorXf", "attributes": {"width": 20, "height": 20}},
        {"type": "lambert", "name": "floorMat", "attributes": {"color": [0.2, 0.4, 0.6], "diffuse": 0.5}},
        {"type": "shadingEngine", "name": "floorSG", "members": ["|floorXf|floor"]},
    ],
    "connections": [["floorMat.outColor", "floorSG.surfaceShader"]],
}


@pytest.fixture
def flat_scene(tmp_path):
    path = tmp_path / "flat.json"
    path.write_text(json.dumps(FLAT_SCENE, indent=1))
    return path
