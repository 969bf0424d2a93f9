# The Python module against closed forms and against the command line: the
# same scene, edit or bad input must give the same pixels, bytes and
# messages either way.
import os
import threading

import numpy as np
import pytest

import shadenet
from conftest import SOURCE_DIR, read_exr, run_cli, same_pixels

SHOWCASE = os.path.join(SOURCE_DIR, "examples", "showcase.json")


def lambert_pixel(color, diffuse, intensity):
    return np.array([c * diffuse * intensity for c in color] + [1.0], dtype=np.float32)


def test_render_matches_closed_form_and_the_command_line(flat_scene, tmp_path):
    by_file = shadenet.render(flat_scene)
    assert by_file.shape == (8, 12, 4) and by_file.dtype == np.float32
    np.testing.assert_allclose(by_file, np.broadcast_to(lambert_pixel([0.2, 0.4, 0.6], 0.5, 1.5), by_file.shape), rtol=1e-5)

    # A loaded scene renders the same.
    scene = shadenet.Scene.load(flat_scene)
    np.testing.assert_array_equal(scene.render(), by_file)

    # A scene with no symmetry against the program's EXR: a flipped, mirrored
    # or transposed array differs. The resolution overrides the scene's.
    showcase = shadenet.render(SHOWCASE, resolution=(40, 30), spp=1)
    assert showcase.shape == (30, 40, 4)
    exr = tmp_path / "showcase.exr"
    r = run_cli("render", SHOWCASE, "-o", exr, "--resolution", 40, 30, "--spp", 1)
    assert r.returncode == 0, r.stderr
    same_pixels(read_exr(exr), showcase)


def test_set_agrees_with_render_set_and_a_closed_form(flat_scene, tmp_path):
    edits = {"floorMat.color": [1, 0.5, 0.25], "floorMat.diffuse": 0.25, "sun.intensity": 2}
    scene = shadenet.Scene.load(flat_scene)
    for plug, value in edits.items():
        scene.set(plug, value)
        assert scene.get(plug) == value
    image = scene.render()
    np.testing.assert_allclose(image[3, 5], lambert_pixel([1, 0.5, 0.25], 0.25, 2), rtol=1e-5)

    exr = tmp_path / "edited.exr"
    args = ["render", flat_scene, "-o", exr]
    for plug, value in edits.items():
        args += ["--set", f"{plug}={shadenet._json(value)}"]
    r = run_cli(*args)
    assert r.returncode == 0, r.stderr
    same_pixels(read_exr(exr), image)


@pytest.mark.parametrize(
    "edit, message",
    [
        ("floorMat.colour=1", "node 'floorMat' of type 'lambert' has no attribute 'colour'"),
        ("floorMat.color=[1, 2]", "'floorMat.color' has 3 children and takes an array of 3 values, not an array of 2"),
        ("floorMat.diffuse=bright", "'floorMat.diffuse' (float) takes a number, not a string"),
        ("floorMat.outColor=[1, 0, 0]", "'floorMat.outColor' is a computed output and cannot be given a value"),
        ("lamp.intensity=1", "no node named 'lamp' in the scene"),
    ],
)
def test_bad_edits_fail_alike_in_python_and_on_the_command_line(flat_scene, tmp_path, edit, message):
    r = run_cli("render", flat_scene, "-o", tmp_path / "never.exr", "--set", edit)
    assert r.returncode == 2
    assert r.stderr == f"shadenet render: error: --set {edit}: {message}\n"
    assert not (tmp_path / "never.exr").exists()

    plug, value = edit.split("=", 1)
    scene = shadenet.Scene.load(flat_scene)
    before = scene.text()
    with pytest.raises(shadenet.Error) as caught:
        scene._scene.set(plug, value if value[0] in "[0123456789" else f'"{value}"')
    assert str(caught.value) == f"set {plug}: {message}"
    assert scene.text() == before


def test_load_errors_carry_the_command_lines_messages(tmp_path):
    bad = tmp_path / "bad.json"
    bad.write_text('{\n  "nodes": [\n    {"type": "lamp", "name": "l"},\n    {"type": "transform", "name": "t", "attributes": {"colour": 1}}\n  ]\n}\n')
    r = run_cli("check", bad)
    assert r.returncode == 1
    cli_lines = [line.split(": error: ", 1)[1] for line in r.stderr.splitlines()]
    with pytest.raises(shadenet.Error) as caught:
        shadenet.Scene.load(bad)
    assert str(caught.value).splitlines() == cli_lines
    assert len(cli_lines) == 2

    with pytest.raises(shadenet.Error, match="unknown node type 'lamp'"):
        shadenet.Scene().create("lamp", "l")
    with pytest.raises(shadenet.Error, match="no node named 'floorMat_'"):
        shadenet.Scene.load(SHOWCASE).swatch("floorMat_")  # a name one letter off


def test_built_scene_saves_loads_and_renders_like_the_file(flat_scene, tmp_path):
    # The closed-form scene again, built node by node from Python.
    from conftest import FLAT_SCENE

    scene = shadenet.Scene()
    for node in FLAT_SCENE["nodes"]:
        assert scene.create(node["type"], node["name"]) == node["name"]
        for attribute, value in node.get("attributes", {}).items():
            scene.set(f"{node['name']}.{attribute}", value)
    for source, destination in FLAT_SCENE["connections"]:
        scene.connect(source, destination)
    with pytest.raises(shadenet.Error, match="cannot connect .* to"):
        scene.connect("floorMat.outColor", "floorMat.outColor")
    # Parents and members are the file's business; the built scene takes them
    # through a save and a load of text that adds them.
    saved = tmp_path / "built.json"
    scene.save(saved)
    reloaded = shadenet.Scene.load(saved)
    assert reloaded.text() == scene.text()
    assert [n for n, _ in reloaded.nodes()] == [n["name"] for n in FLAT_SCENE["nodes"]]
    assert reloaded.get("floorMat.color") == [0.2, 0.4, 0.6]


def test_swatches_listings_and_bot_files_equal_the_command_lines(tmp_path):
    # Swatch of a type: the CLI's EXR, pixel for pixel.
    image = shadenet.swatch("checker", size=24, spp=1)
    r = run_cli("swatch", "checker", "--size", 24, "--spp", 1, "-o", tmp_path / "checker.exr")
    assert r.returncode == 0, r.stderr
    same_pixels(read_exr(tmp_path / "checker.exr"), image)
    # The swatch of a scene's node leaves the scene as it was.
    scene = shadenet.Scene.load(SHOWCASE)
    before = scene.text()
    assert scene.swatch("floorChecker", size=16, spp=1).shape == (16, 16, 4)
    assert scene.text() == before

    r = run_cli("compile", SHOWCASE, "ballSG", "--option", "surfaceShadows")
    assert r.returncode == 0, r.stderr
    assert shadenet.compile(SHOWCASE, "ballSG", option="surfaceShadows") == r.stdout
    with pytest.raises(shadenet.Error, match="'ballXf' is a transform, not a shading group"):
        scene.compile("ballXf")
    assert "surfaceShadows" in shadenet.shading_options()

    swatch_png = tmp_path / "swatch.png"
    run_cli("swatch", "checker", "--size", 32, "-o", swatch_png)
    summary = shadenet.bot_convert(swatch_png, tmp_path / "py.bot")
    r = run_cli("bot", "convert", swatch_png, "-o", tmp_path / "cli.bot")
    assert r.returncode == 0, r.stderr
    assert (tmp_path / "py.bot").read_bytes() == (tmp_path / "cli.bot").read_bytes()
    assert r.stdout == summary.replace("py.bot", "cli.bot") + "\n"
    with pytest.raises(shadenet.Error, match="cannot read image"):
        shadenet.bot_convert(tmp_path / "missing.png", tmp_path / "x.bot")
    with pytest.raises(shadenet.Error, match="is the input file"):
        shadenet.bot_convert(swatch_png, swatch_png)


def test_types_and_attributes_agree_with_nodes_listing():
    import json

    types = shadenet.node_types()
    assert {"lambert", "spotLight", "checker", "camera"} <= set(types)
    r = run_cli("nodes", "spotLight", "--json")
    listed = json.loads(r.stdout)["attributes"]
    ours = shadenet.attributes("spotLight")
    assert [a["name"] for a in ours] == [a["long"] for a in listed]
    for mine, theirs in zip(ours, listed):
        assert (mine["description"], mine["unit"], mine["range"]) == (theirs["description"], theirs["unit"], theirs["range"])
        assert json.loads(mine["default"]) == theirs["default"]
    cone = next(a for a in ours if a["name"] == "coneAngle")
    assert cone["unit"] == "radians" and cone["description"] != "-"
    with pytest.raises(shadenet.Error, match="unknown node type 'lamp'"):
        shadenet.attributes("lamp")


def test_render_releases_the_interpreter():
    # While a render runs on another thread, this one keeps running Python.
    scene = shadenet.Scene.load(SHOWCASE)
    started = threading.Event()
    result = {}

    def work():
        started.set()
        result["image"] = scene.render(resolution=(160, 120), spp=4, threads=1)

    worker = threading.Thread(target=work)
    worker.start()
    started.wait()
    steps = 0
    while worker.is_alive():
        steps += 1
    worker.join()
    assert result["image"].shape == (120, 160, 4)
    # Holding the interpreter lock through the render would let this loop
    # run only in the moment before the render starts.
    assert steps > 10000


def test_render_warnings_are_the_command_lines(tmp_path):
    # A ball in no shading group and no lights: it renders, with two warnings.
    scene = tmp_path / "unlit.json"
    scene.write_text('{"nodes": [{"type": "transform", "name": "camXf", "attributes": {"translate": [0, 0, 5]}},'
                     ' {"type": "camera", "name": "cam", "parent": "camXf"},'
                     ' {"type": "transform", "name": "bXf"}, {"type": "sphere", "name": "b", "parent": "bXf"}]}')
    r = run_cli("render", scene, "-o", tmp_path / "unlit.exr", "--resolution", 8, 8)
    assert r.returncode == 0, r.stderr
    cli = [line.split(": warning: ", 1)[1] for line in r.stderr.splitlines() if ": warning: " in line]
    with pytest.warns(RuntimeWarning) as caught:
        image = shadenet.render(scene, resolution=(8, 8))
    assert [str(w.message) for w in caught] == cli and len(cli) == 2
    same_pixels(read_exr(tmp_path / "unlit.exr"), image)
