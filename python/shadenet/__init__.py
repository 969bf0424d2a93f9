"""shadenet from Python: scenes, renders and swatches as NumPy arrays.

    import shadenet
    image = shadenet.render("examples/showcase.json", resolution=(320, 240))
    image.shape  # (240, 320, 4), float32, linear RGBA, rows from the top

    scene = shadenet.Scene.load("examples/showcase.json")
    scene.set("floorMat.color", [0.8, 0.2, 0.2])
    image = scene.render(resolution=(320, 240))

Every failure raises shadenet.Error with the text the command line prints,
one problem per line. Renders release the GIL.
"""

import json
import os

from ._shadenet import Error, _Scene, node_types
from . import _shadenet

__all__ = ["Error", "Scene", "node_types", "attributes", "render", "swatch", "compile", "bot_convert", "shading_options"]


def _json(value):
    # Tuples and NumPy scalars or arrays become the JSON arrays and numbers
    # a scene file holds.
    if hasattr(value, "tolist"):
        value = value.tolist()
    return json.dumps(value)


def _resolution(resolution):
    if resolution is None:
        return None
    width, height = resolution
    return int(width), int(height)


class Scene:
    """A scene: nodes, values and connections, loaded from a file or built."""

    def __init__(self, path=None):
        # Relative file names in the scene (textures, meshes) are found from
        # the folder of `file`; a scene built from nothing uses the current
        # folder.
        self._scene = _Scene(os.fspath(path)) if path is not None else _Scene()
        if path is None:
            self._scene.file = os.path.join(os.getcwd(), "untitled.json")

    @classmethod
    def load(cls, path):
        return cls(path)

    @property
    def file(self):
        return self._scene.file

    @file.setter
    def file(self, path):
        self._scene.file = os.fspath(path)

    def save(self, path):
        self._scene.save(os.fspath(path))

    def text(self):
        """The scene as scene-file text."""
        return self._scene.text()

    def create(self, type, name=""):
        """Makes a node; returns its name (a free one when `name` is empty)."""
        return self._scene.create(type, name)

    def connect(self, source, destination):
        """Connects "node.attr" to "node.attr", as a scene file's connections."""
        self._scene.connect(source, destination, True)

    def disconnect(self, source, destination):
        self._scene.connect(source, destination, False)

    def set(self, plug, value):
        """Sets "node.attr" to a value as a scene file would hold it: a
        number, bool, string (enumeration fields by name), or a sequence for
        compounds such as colours."""
        self._scene.set(plug, _json(value))

    def get(self, plug):
        """The value of "node.attr" as a scene file would hold it."""
        return json.loads(self._scene.get(plug))

    def nodes(self):
        """(name, type) of every node in creation order."""
        return self._scene.nodes()

    def render(self, resolution=None, spp=0, threads=0, camera=""):
        """The camera's view as an h x w x 4 float32 array (linear RGBA, rows
        from the top). 0 or None takes the scene's own setting."""
        return self._scene.render(_resolution(resolution), spp, threads, camera)

    def swatch(self, node, size=128, spp=4):
        """The preview of one node of the scene, size x size x 4."""
        return self._scene.swatch(node, size, spp)

    def compile(self, group, option="surfaceColorTransparency"):
        """The listing of the program the engine makes of a shading group."""
        return self._scene.compile(group, option)


def attributes(type):
    """The attributes of a node type: dicts with name, short, type, default
    (JSON text), description, unit, range, parent and input (whether a
    scene file can give it a value)."""
    return _shadenet._attributes(type)


def render(scene, resolution=None, spp=0, threads=0, camera=""):
    """Renders a scene file (or a Scene) into an h x w x 4 float32 array."""
    if not isinstance(scene, Scene):
        scene = Scene.load(scene)
    return scene.render(resolution=resolution, spp=spp, threads=threads, camera=camera)


def swatch(what, size=128, spp=4):
    """The preview of a node type ("checker") or FILE:NODE, as the command
    line's swatch renders it."""
    return _shadenet._swatch_type(os.fspath(what), size, spp)


def compile(scene, group, option="surfaceColorTransparency"):
    """The program listing of a shading group of a scene file (or Scene)."""
    if not isinstance(scene, Scene):
        scene = Scene.load(scene)
    return scene.compile(group, option)


def bot_convert(image, output, hdr_mapping="linear", exposure=0.0, keep_size=False):
    """Converts an image into a block-ordered texture file; returns the
    one-line summary the command line prints."""
    image, output = os.fspath(image), os.fspath(output)
    if hdr_mapping not in ("clamp", "linear", "exponential"):
        raise ValueError("hdr_mapping: one of clamp, linear, exponential")
    if os.path.exists(output) and os.path.exists(image) and os.path.samefile(image, output):
        raise Error(output + ": the output is the input file " + image + "; give another output name")
    return _shadenet._bot_convert(image, output, hdr_mapping, float(exposure), bool(keep_size))


def shading_options():
    """The names compile() takes as `option`."""
    return _shadenet._option_names().split(", ")
