"""The Python module against the command line, and its answers to bad input."""
import os
import subprocess
import sys

import numpy as np
import pytest

import quorblen

PROGRAM = os.environ.get("QUORBLEN_PROGRAM", "quorblen")
DATA = os.environ.get("QUORBLEN_DATA", os.path.join(os.path.dirname(__file__), "../../data"))
METHODS = ["tv", "elastica", "texture", "texture-tv", "elastica-texture", "texture-elastica",
           "weighted-elastica", "multi-source", "fallback"]


def run(*args):
    subprocess.run([PROGRAM, *map(str, args)], check=True, capture_output=True)


def read_file(path, tmp_path):
    """The pixels of an image file: as OpenImageIO's Python reader gives them (uint8 for a PNG),
    else as floats through the program's raw conversion."""
    try:
        import OpenImageIO
        return OpenImageIO.ImageInput.open(str(path)).read_image(OpenImageIO.UNKNOWN)
    except ImportError:
        run("convert", path, tmp_path / "read.raw")
        return quorblen.read_raw(tmp_path / "read.raw")


@pytest.mark.parametrize("command", ["upscale", "inpaint"])
def test_results_equal_the_command_lines_to_the_bit(command, tmp_path):
    photo = os.path.join(DATA, "coffee.png")
    mask = os.path.join(DATA, "coffee-mask.png")
    pixels = read_file(photo, tmp_path)
    if command == "upscale":
        run("upscale", photo, tmp_path / "out.exr", "-d", "float")
        ours = quorblen.upscale(pixels)
    else:
        run("inpaint", photo, tmp_path / "out.exr", "--mask", mask, "-d", "float")
        ours = quorblen.inpaint(pixels, read_file(mask, tmp_path)[..., 0])
    run("convert", tmp_path / "out.exr", tmp_path / "out.raw")
    expected = quorblen.read_raw(tmp_path / "out.raw")
    assert ours.dtype == np.float32
    assert np.array_equal(ours.view(np.uint32), expected.view(np.uint32))


def small_image(channels):
    rng = np.random.default_rng(7)
    ramp = np.linspace(0.0, 1.0, 24, dtype=np.float32)
    image = ramp[None, :, None] * ramp[:, None, None] + 0.05 * rng.random((24, 24, channels))
    return image.astype(np.float32)


@pytest.mark.parametrize("method", METHODS)
def test_each_method_fills_the_hole_alone(method):
    image = small_image(4)
    mask = np.zeros((24, 24), dtype=bool)
    mask[10:14, 9:15] = True
    image[mask, :3] = 0.0
    options = {"search_radius": 6, "patch_radius": 2}
    if method in ("weighted-elastica", "multi-source", "fallback"):
        options["source2"] = image[::-1].copy()
    result = quorblen.inpaint(image, mask, method, **options)
    known = np.broadcast_to(~mask[..., None], image.shape).copy()
    known[..., 3] = True
    assert np.array_equal(result[known].view(np.uint32), image[known].view(np.uint32))
    hole = result[mask, :3]
    assert np.all(np.isfinite(hole)) and hole.min() > 0.0


@pytest.mark.parametrize("layout", [
    lambda a: a[:, ::2],                                # strided
    lambda a: np.broadcast_to(a, a.shape),              # read-only
    lambda a: a.astype(a.dtype.newbyteorder(">")),      # byte-swapped
    lambda a: a.astype(np.float64),                     # rounded back to the same floats
    lambda a: a[..., 0],                                # grey, without a channel axis
])
def test_any_array_layout_gives_the_result_of_its_float32_copy(layout):
    view = layout(small_image(3))
    copy = np.ascontiguousarray(view, dtype=np.float32)
    assert np.array_equal(quorblen.upscale(view), quorblen.upscale(copy))
    assert quorblen.upscale(view).shape == (2 * view.shape[0], 2 * view.shape[1]) + view.shape[2:]


def test_raw_files_keep_every_bit(tmp_path):
    image = small_image(2)
    image[0, 0] = [np.nan, -np.inf]
    quorblen.write_raw(tmp_path / "a.raw", image)
    assert np.array_equal(quorblen.read_raw(tmp_path / "a.raw").view(np.uint32),
                          image.view(np.uint32))


IMAGE = small_image(3)
MASK = np.zeros((24, 24))
MASK[5, 5] = 0.5


def truncated(path):
    quorblen.write_raw(path, IMAGE)
    with open(path, "r+b") as f:
        f.truncate(100)
    return quorblen.read_raw(path)


@pytest.mark.parametrize("call, error, words", [
    (lambda d: quorblen.upscale(IMAGE.tolist()), TypeError, "image must be a NumPy array"),
    (lambda d: quorblen.upscale(IMAGE.astype(complex)), TypeError, "image has samples"),
    (lambda d: quorblen.upscale(IMAGE.astype(np.int64)), TypeError, "image has samples"),
    (lambda d: quorblen.upscale(IMAGE[0, 0]), ValueError, "image must have the shape"),
    (lambda d: quorblen.upscale(IMAGE[:0]), ValueError, "image is empty"),
    (lambda d: quorblen.upscale(np.broadcast_to(IMAGE[:1, :1], (20000, 20000, 3))),
     ValueError, "image is too large"),
    (lambda d: quorblen.upscale(IMAGE, iterations=0), ValueError, "iterations"),
    (lambda d: quorblen.upscale(IMAGE, lam=np.nan), ValueError, "lam"),
    (lambda d: quorblen.upscale(IMAGE, a=1e-60), ValueError, "a must"),
    (lambda d: quorblen.upscale(IMAGE, threads=-1), ValueError, "threads"),
    (lambda d: quorblen.inpaint(IMAGE, MASK.astype(str)), TypeError, "mask has samples"),
    (lambda d: quorblen.inpaint(IMAGE, MASK[1:]), ValueError, "mask has the shape"),
    (lambda d: quorblen.inpaint(IMAGE, MASK + 1), ValueError, "mask marks every pixel"),
    (lambda d: quorblen.inpaint(np.dstack([IMAGE] * 2), MASK), ValueError, "colour channels"),
    (lambda d: quorblen.inpaint(IMAGE, MASK, "blur"), ValueError, "method must be one of"),
    (lambda d: quorblen.inpaint(IMAGE, MASK, blur=1), TypeError, "'blur'"),
    (lambda d: quorblen.inpaint(IMAGE, MASK, epsilon=float("nan")), ValueError, "epsilon"),
    (lambda d: quorblen.inpaint(IMAGE, MASK, search_radius=0), ValueError, "search_radius"),
    (lambda d: quorblen.inpaint(IMAGE, MASK, passes=1.5), TypeError, "passes"),
    (lambda d: quorblen.inpaint(IMAGE, MASK, lam="5"), TypeError, "lam"),
    (lambda d: quorblen.inpaint(IMAGE, MASK, "multi-source", source2=IMAGE[1:]), ValueError,
     "source2"),
    (lambda d: quorblen.read_raw(d / "missing.raw"), FileNotFoundError, "missing.raw"),
    (lambda d: quorblen.read_raw(d), IsADirectoryError, str(os.sep)),
    (lambda d: truncated(d / "cut.raw"), OSError, "not a whole raw image"),
    (lambda d: quorblen.write_raw(d / "no" / "a.raw", IMAGE), FileNotFoundError, "a.raw"),
])
def test_bad_input_raises_what_python_users_expect(call, error, words, tmp_path):
    with pytest.raises(error, match=words.replace("(", r"\(")):
        call(tmp_path)


def test_write_raw_on_a_full_disk_raises_and_leaves_nothing(tmp_path):
    # A disk that fills: a file size limit on a child interpreter, SIGXFSZ ignored.
    script = ("import resource, signal, sys\n"
              "import numpy as np, quorblen\n"
              "signal.signal(signal.SIGXFSZ, signal.SIG_IGN)\n"
              "resource.setrlimit(resource.RLIMIT_FSIZE, (4096, 4096))\n"
              "quorblen.write_raw(sys.argv[1], np.zeros((64, 64, 3), np.float32))\n")
    target = tmp_path / "p.raw"
    child = subprocess.run([sys.executable, "-c", script, target], capture_output=True, text=True)
    assert child.returncode == 1
    error = child.stderr.splitlines()[-1]
    assert error.startswith("OSError") and "File too large" in error and str(target) in error
    assert list(tmp_path.iterdir()) == []
