"""The build backend of pyproject.toml.

With scikit-build-core importable, every hook is scikit-build-core's. Without
it (no package index to fetch it from, pip run with --no-build-isolation), a
small backend makes the same wheel from the same [tool.scikit-build]
settings: configure and build the named targets with CMake, install the
named components into a staging folder, and zip that with the metadata.
"""
import base64
import hashlib
import os
import shutil
import subprocess
import sys
import sysconfig
import tomllib
import zipfile

try:
    from scikit_build_core.build import *  # noqa: F401,F403
    from scikit_build_core.build import build_wheel, get_requires_for_build_wheel  # noqa: F401
except ImportError:
    ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))

    def _settings():
        with open(os.path.join(ROOT, "pyproject.toml"), "rb") as f:
            return tomllib.load(f)

    def _wheel_tag():
        python = f"cp{sys.version_info.major}{sys.version_info.minor}"
        platform = sysconfig.get_platform().replace("-", "_").replace(".", "_")
        return f"{python}-{python}-{platform}"

    def get_requires_for_build_wheel(config_settings=None):
        return []

    def get_requires_for_build_sdist(config_settings=None):
        return []

    def build_sdist(sdist_directory, config_settings=None):
        raise RuntimeError("shadenet: source archives need scikit-build-core; build a wheel, or archive the git tree")

    def build_wheel(wheel_directory, config_settings=None, metadata_directory=None):
        settings = _settings()
        project, skbuild = settings["project"], settings["tool"]["scikit-build"]
        build_dir = os.path.join(ROOT, skbuild.get("build-dir", "build/wheel"))
        staging = os.path.join(build_dir, "staging")
        shutil.rmtree(staging, ignore_errors=True)
        configure = ["cmake", "-S", ROOT, "-B", build_dir, f"-DCMAKE_BUILD_TYPE={skbuild['cmake']['build-type']}",
                     f"-DPython_EXECUTABLE={sys.executable}"]
        if shutil.which("ninja"):
            configure += ["-G", "Ninja"]
        subprocess.run(configure, check=True, stdout=sys.stderr)
        subprocess.run(["cmake", "--build", build_dir, "--target", *skbuild["build"]["targets"]], check=True, stdout=sys.stderr)
        for component in skbuild["install"]["components"]:
            subprocess.run(["cmake", "--install", build_dir, "--prefix", staging, "--component", component], check=True,
                           stdout=sys.stderr)

        name, version = project["name"], project["version"]
        info = f"{name}-{version}.dist-info"
        metadata = [f"Metadata-Version: 2.1", f"Name: {name}", f"Version: {version}", f"Summary: {project['description']}",
                    f"Requires-Python: {project['requires-python']}"]
        metadata += [f"Requires-Dist: {d}" for d in project.get("dependencies", [])]
        files = {f"{info}/METADATA": ("\n".join(metadata) + "\n").encode(),
                 f"{info}/WHEEL": (f"Wheel-Version: 1.0\nGenerator: shadenet_build\nRoot-Is-Purelib: false\nTag: {_wheel_tag()}\n").encode()}
        for folder, _, names in os.walk(staging):
            for n in names:
                path = os.path.join(folder, n)
                with open(path, "rb") as f:
                    files[os.path.relpath(path, staging).replace(os.sep, "/")] = f.read()

        def record_line(arcname, data):
            digest = base64.urlsafe_b64encode(hashlib.sha256(data).digest()).rstrip(b"=").decode()
            return f"{arcname},sha256={digest},{len(data)}"

        record = "\n".join(record_line(a, d) for a, d in files.items()) + f"\n{info}/RECORD,,\n"
        wheel_name = f"{name}-{version}-{_wheel_tag()}.whl"
        with zipfile.ZipFile(os.path.join(wheel_directory, wheel_name), "w", zipfile.ZIP_DEFLATED) as wheel:
            for arcname, data in files.items():
                info_entry = zipfile.ZipInfo(arcname)
                info_entry.external_attr = (0o755 if arcname.endswith(".so") else 0o644) << 16
                wheel.writestr(info_entry, data, zipfile.ZIP_DEFLATED)
            wheel.writestr(f"{info}/RECORD", record)
        return wheel_name
