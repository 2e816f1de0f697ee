"""The Python module against the command line, and its answers to bad input."""
import ast
import logging
import os
import subprocess
import sys
import warnings

import numpy as np
import pytest

import quorblen

PROGRAM = os.environ.get("QUORBLEN_PROGRAM", "quorblen")
DATA = os.environ.get("QUORBLEN_DATA", os.path.join(os.path.dirname(__file__), "../../data"))
METHODS = ["tv", "elastica", "texture", "texture-tv", "elastica-texture", "texture-elastica",
           "weighted-elastica", "multi-source", "fallback", "patchmatch"]


def run(*args, check=True):
    return subprocess.run([PROGRAM, *map(str, args)], check=check, capture_output=True,
                          text=True)


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
    if method in ("weighted-elastica", "multi-source", "fallback", "patchmatch"):
        options["source2"] = image[::-1].copy()
    result = quorblen.inpaint(image, mask, method, **options)
    known = np.broadcast_to(~mask[..., None], image.shape).copy()
    known[..., 3] = True
    assert np.array_equal(result[known].view(np.uint32), image[known].view(np.uint32))
    hole = result[mask, :3]
    assert np.all(np.isfinite(hole)) and hole.min() > 0.0


@pytest.mark.parametrize("method", ["multi-source", "patchmatch"])
def test_a_clean_plate_with_its_own_mask_fills_the_hole_exactly(method):
    plate = np.random.default_rng(3).random((32, 32, 3), dtype=np.float32)
    image, mask = plate.copy(), np.zeros((32, 32), dtype=bool)
    mask[12:20, 10:18] = True
    image[mask] = 1.0
    clean = quorblen.inpaint(image, mask, method, source2=plate, source2_mask=np.zeros_like(mask))
    assert np.array_equal(clean, plate)
    # Under the image's mask the plate has nothing to give.
    assert not np.allclose(quorblen.inpaint(image, mask, method, source2=plate), plate, atol=0.1)


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


def test_every_inpaint_line_goes_to_the_logger(caplog, capfd):
    with caplog.at_level(logging.INFO, logger="quorblen"):
        quorblen.inpaint(IMAGE, MASK, "texture", passes=2, search_radius=4)
    assert [record.getMessage().split(":")[0] for record in caplog.records] == [
        "inpaintTextureSynthesis", "texture", "inpaintTextureSynthesis", "texture"]
    assert capfd.readouterr().out == ""


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
    (lambda d: quorblen.upscale(IMAGE, 5), TypeError, "incompatible function arguments"),
    (lambda d: quorblen.upscale(IMAGE, fixnan=0), TypeError, "fixnan must be a str"),
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
    (lambda d: quorblen.inpaint(IMAGE, MASK, source2=IMAGE, source2_mask=MASK[1:]), ValueError,
     "source2_mask has the shape"),
    (lambda d: quorblen.inpaint(IMAGE, MASK, source3_mask=MASK), ValueError,
     "the mask of source3 is given without source3"),
    (lambda d: quorblen.read_raw(d / "missing.raw"), FileNotFoundError, "missing.raw"),
    (lambda d: quorblen.read_raw(d), IsADirectoryError, str(os.sep)),
    (lambda d: truncated(d / "cut.raw"), OSError, "not a whole raw image"),
    (lambda d: quorblen.write_raw(d / "no" / "a.raw", IMAGE), FileNotFoundError, "a.raw"),
])
def test_bad_input_raises_what_python_users_expect(call, error, words, tmp_path):
    with pytest.raises(error, match=words.replace("(", r"\(")):
        call(tmp_path)


@pytest.mark.parametrize("command, option, value", [
    ("upscale", "a", 0), ("upscale", "iterations", 0), ("upscale", "threads", 1025),
    ("upscale", "lambda", float("inf")), ("inpaint", "search-radius", 0),
    ("inpaint", "time-step", 2.0),
])
def test_a_mistake_gets_the_command_lines_words(command, option, value, tmp_path):
    mask = ["--mask", "m.png"] if command == "inpaint" else []
    cli = run(command, "in.png", tmp_path / "out.png", *mask, f"--{option}", value, check=False)
    assert cli.returncode == 2
    keyword = "lam" if option == "lambda" else option.replace("-", "_")
    arguments = (IMAGE, MASK) if command == "inpaint" else (IMAGE,)
    with pytest.raises(ValueError) as error:
        getattr(quorblen, command)(*arguments, **{keyword: value})
    words = str(error.value)[len(keyword):]
    assert words.startswith(" must be") and f"quorblen {command}: --{option}{words}\n" in cli.stderr


# Far enough from the hole of MASK that the recipes, which refuse such samples near it, go on.
NOT_FINITE = IMAGE.copy()
NOT_FINITE[20, 20] = [np.nan, np.inf, np.nan]


@pytest.mark.parametrize("call", [
    lambda **kw: quorblen.upscale(NOT_FINITE, iterations=2, **kw),
    lambda **kw: quorblen.inpaint(NOT_FINITE, MASK, **kw),
    lambda **kw: quorblen.inpaint(IMAGE, MASK, "multi-source", source2=NOT_FINITE,
                                  search_radius=2, **kw),
])
def test_fixnan_warns_repairs_or_refuses(call):
    with pytest.warns(RuntimeWarning, match=r": 3 samples are not finite numbers \(NaN or "
                      r"infinite\); fixnan='black' or 'box3' repairs them"):
        call()
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        black = call(fixnan="black")
        box3 = call(fixnan="box3")
    assert np.all(np.isfinite(black)) and np.all(np.isfinite(box3))
    with pytest.raises(ValueError, match=r"3 samples are not finite numbers \(NaN or infinite\)$"):
        call(fixnan="error")


def test_black_repairs_before_the_solve():
    zeros = NOT_FINITE.copy()
    zeros[20, 20] = 0.0
    assert np.array_equal(quorblen.upscale(NOT_FINITE, fixnan="black"), quorblen.upscale(zeros))


def test_the_stub_gives_the_modules_signatures_and_defaults():
    """The stub beside the module names every function; passing each keyword's default as the
    stub gives it changes no result."""
    with open(os.path.join(os.path.dirname(quorblen.__file__), "quorblen.pyi")) as stub:
        functions = {node.name: node for node in ast.parse(stub.read()).body
                     if isinstance(node, ast.FunctionDef)}
    assert set(functions) == {"upscale", "inpaint", "read_raw", "write_raw"}

    def defaults(name):
        arguments = functions[name].args
        return {a.arg: ast.literal_eval(d)
                for a, d in zip(arguments.kwonlyargs, arguments.kw_defaults)}

    assert np.array_equal(quorblen.upscale(IMAGE, **defaults("upscale")), quorblen.upscale(IMAGE))
    assert np.array_equal(quorblen.inpaint(IMAGE, MASK, **defaults("inpaint")),
                          quorblen.inpaint(IMAGE, MASK))


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
