#!/usr/bin/python3
"""Object-sized holes filled by the library's recipes and by peers, measured against the photos.

Each sample photo gets two holes over textured content: a 128 x 128 square and an irregular
blob of 7% of the image. Every method fills each case; the script prints one table of means
over the cases: PSNR and SSIM inside the hole against the original photo, the detail ratio
(mean gradient magnitude inside the hole over that of the ring 8 to 16 pixels around it: 1 keeps
the surroundings' texture, blurring methods give 0.1 to 0.3) and the wall time of one fill.
The quorblen rows and G'MIC run as whole processes (start-up included), OpenCV in this process.

Needs Debian's python3-opencv (with its xphoto module) and gmic, and the built quorblen program:

    /usr/bin/python3 bench/evaluate_large_holes.py --quorblen build/bin/quorblen \
        --montage docs/large-holes.jpg
"""
import argparse
import math
import os
import subprocess
import sys
import tempfile
import time

import cv2
import numpy as np

HERE = os.path.dirname(os.path.abspath(__file__))

# Photo, top-left corner of its square hole, centre of its blob: each over textured content.
CASES = [
    ("astronaut.png", (40, 300), (330, 380)),
    ("chelsea.png", (30, 140), (330, 200)),
    ("coffee.png", (450, 200), (120, 300)),
    ("brick.png", (192, 192), (300, 280)),
    ("camera.png", (280, 360), (380, 300)),
    ("grass.png", (192, 192), (300, 280)),
    ("gravel.png", (192, 192), (300, 280)),
]
SQUARE = 128
BLOB_SHARE = 0.07
RING = (8, 16)


def square_mask(shape, corner):
    mask = np.zeros(shape[:2], bool)
    x, y = corner
    mask[y:y + SQUARE, x:x + SQUARE] = True
    return mask


def blob_mask(shape, centre, seed):
    """A star-shaped blob with a wavy outline, scaled to BLOB_SHARE of the image."""
    rng = np.random.RandomState(seed)
    waves = [(k, rng.uniform(0.08, 0.25), rng.uniform(0, 2 * math.pi)) for k in (2, 3, 5)]
    h, w = shape[:2]
    yy, xx = np.mgrid[0:h, 0:w]
    angle = np.arctan2(yy - centre[1], xx - centre[0])
    radius = np.hypot(xx - centre[0], yy - centre[1])
    outline = 1 + sum(a * np.sin(k * angle + p) for k, a, p in waves)
    low, high = 1.0, float(max(h, w))
    for _ in range(40):  # bisection on the scale of the outline
        scale = (low + high) / 2
        if (radius < scale * outline).mean() < BLOB_SHARE:
            low = scale
        else:
            high = scale
    return radius < high * outline


def run_quorblen(program, method, options=()):
    def fill(image, mask, work):
        cv2.imwrite(os.path.join(work, "in.png"), image)
        cv2.imwrite(os.path.join(work, "mask.png"), mask.astype(np.uint8) * 255)
        out = os.path.join(work, "out.png")
        start = time.perf_counter()
        subprocess.run([program, "inpaint", os.path.join(work, "in.png"), out, "--mask",
                        os.path.join(work, "mask.png"), "--method", method, "-q", *options],
                       check=True)
        return cv2.imread(out, cv2.IMREAD_UNCHANGED), time.perf_counter() - start
    return fill


def run_gmic(command):
    def fill(image, mask, work):
        cv2.imwrite(os.path.join(work, "in.png"), image)
        cv2.imwrite(os.path.join(work, "mask.png"), mask.astype(np.uint8) * 255)
        out = os.path.join(work, "out.png")
        start = time.perf_counter()
        subprocess.run(["gmic", "-v", "-1", os.path.join(work, "in.png"),
                        os.path.join(work, "mask.png"), *command.split(), "output[0]", out],
                       check=True, stdout=subprocess.DEVNULL)
        return cv2.imread(out, cv2.IMREAD_UNCHANGED), time.perf_counter() - start
    return fill


def run_xphoto(algorithm):
    def fill(image, mask, work):
        grey = image.ndim == 2
        src = cv2.cvtColor(image, cv2.COLOR_GRAY2BGR) if grey else image
        dst = np.zeros_like(src)
        valid = np.where(mask, 0, 255).astype(np.uint8)  # xphoto marks the known pixels
        start = time.perf_counter()
        cv2.xphoto.inpaint(src, valid, dst, algorithm)
        seconds = time.perf_counter() - start
        return (dst[:, :, 0] if grey else dst), seconds
    return fill


QUORBLEN_METHODS = ("patchmatch", "texture", "multi-source")


def methods(program, options):
    return [(name, run_quorblen(program, name, options)) for name in QUORBLEN_METHODS] + [
        ("OpenCV shift-map", run_xphoto(cv2.xphoto.INPAINT_SHIFTMAP)),
        ("G'MIC inpaint (patch)", run_gmic("inpaint[0] [1],5,15,0.5,1,9,0")),
        ("G'MIC inpaint_matchpatch", run_gmic("inpaint_matchpatch[0] [1]")),
        ("OpenCV FSR fast", run_xphoto(cv2.xphoto.INPAINT_FSR_FAST)),
    ]


def ssim_map(a, b):
    """SSIM of two grey float images (0-255), Gaussian window of sigma 1.5."""
    c1, c2 = (0.01 * 255) ** 2, (0.03 * 255) ** 2
    blur = lambda v: cv2.GaussianBlur(v, (11, 11), 1.5)
    ma, mb = blur(a), blur(b)
    va, vb, cov = blur(a * a) - ma * ma, blur(b * b) - mb * mb, blur(a * b) - ma * mb
    return ((2 * ma * mb + c1) * (2 * cov + c2)) / ((ma * ma + mb * mb + c1) * (va + vb + c2))


def measures(original, result, mask):
    a = original.astype(np.float64).reshape(mask.shape + (-1,))
    b = result.astype(np.float64).reshape(mask.shape + (-1,))
    mse = ((a - b) ** 2)[mask].mean()
    psnr = 10 * math.log10(255.0 ** 2 / max(mse, 1e-12))
    ssim = np.mean([ssim_map(a[:, :, c], b[:, :, c])[mask].mean() for c in range(a.shape[2])])
    grey = b.mean(axis=2)
    gy, gx = np.gradient(grey)
    magnitude = np.hypot(gx, gy)
    distance = cv2.distanceTransform(np.where(mask, 0, 255).astype(np.uint8), cv2.DIST_L2, 5)
    ring = (distance >= RING[0]) & (distance <= RING[1])
    return psnr, ssim, magnitude[mask].mean() / magnitude[ring].mean()


def crop_of(image, mask, size=176):
    """The hole's surroundings, square, scaled to `size` pixels, in colour."""
    ys, xs = np.nonzero(mask)
    side = max(ys.max() - ys.min(), xs.max() - xs.min()) + 48
    cy, cx = (ys.max() + ys.min()) // 2, (xs.max() + xs.min()) // 2
    h, w = mask.shape
    y0 = int(np.clip(cy - side // 2, 0, max(h - side, 0)))
    x0 = int(np.clip(cx - side // 2, 0, max(w - side, 0)))
    part = image[y0:y0 + side, x0:x0 + side]
    part = cv2.cvtColor(part, cv2.COLOR_GRAY2BGR) if part.ndim == 2 else part
    return cv2.resize(part, (size, size), interpolation=cv2.INTER_AREA)


def write_montage(path, rows, names):
    """Rows of crops (the photo with its hole outlined, then each method), labelled on top."""
    size = rows[0][0].shape[0]
    label = np.full((22, size * len(names), 3), 255, np.uint8)
    for k, name in enumerate(names):
        cv2.putText(label, name[:24], (k * size + 4, 15), cv2.FONT_HERSHEY_SIMPLEX, 0.42,
                    (0, 0, 0), 1, cv2.LINE_AA)
    sheet = np.vstack([label] + [np.hstack(row) for row in rows])
    cv2.imwrite(path, sheet, [cv2.IMWRITE_JPEG_QUALITY, 60])


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--quorblen", default=os.path.join(HERE, "..", "build", "bin", "quorblen"))
    parser.add_argument("--data", default=os.path.join(HERE, "..", "data"))
    parser.add_argument("--montage", help="write a JPEG of some results here")
    parser.add_argument("--only", help="run only the methods whose names contain this")
    parser.add_argument("--options", default="",
                        help="more options for the quorblen methods, e.g. '--patch-radius 4'")
    args = parser.parse_args()

    table = methods(os.path.abspath(args.quorblen), args.options.split())
    if args.only:
        table = [m for m in table if args.only in m[0]]
    scores = {name: [] for name, _ in table}
    montage_rows = []
    with tempfile.TemporaryDirectory() as work:
        for index, (photo, corner, centre) in enumerate(CASES):
            image = cv2.imread(os.path.join(args.data, photo), cv2.IMREAD_UNCHANGED)
            for kind, mask in (("square", square_mask(image.shape, corner)),
                               ("blob", blob_mask(image.shape, centre, index))):
                row = []
                outlined = image.copy()
                outlined[mask] = 255 - outlined[mask] // 2
                row.append(crop_of(outlined, mask))
                for name, fill in table:
                    result, seconds = fill(image, mask, work)
                    if name in QUORBLEN_METHODS:
                        assert (result[~mask] == image[~mask]).all(), name + " changed known pixels"
                    result[~mask] = image[~mask]  # some peers touch the known pixels too
                    scores[name].append(measures(image, result, mask) + (seconds,))
                    row.append(crop_of(result, mask))
                    print(f"{photo} {kind} {name}: PSNR {scores[name][-1][0]:.2f} "
                          f"SSIM {scores[name][-1][1]:.3f} detail {scores[name][-1][2]:.2f} "
                          f"{seconds:.2f} s", file=sys.stderr)
                if (index + (kind == "blob")) % 2 == 0:
                    montage_rows.append(row)
    print(f"Means over {len(CASES) * 2} cases (7 photos x square {SQUARE} px and blob "
          f"{BLOB_SHARE:.0%}):\n")
    print("| method | hole PSNR (dB) | hole SSIM | detail ratio | seconds |")
    print("|---|---|---|---|---|")
    for name, _ in table:
        psnr, ssim, detail, seconds = np.mean(scores[name], axis=0)
        print(f"| {name} | {psnr:.2f} | {ssim:.3f} | {detail:.2f} | {seconds:.2f} |")
    if args.montage:
        write_montage(args.montage, montage_rows, ["hole"] + [name for name, _ in table])


if __name__ == "__main__":
    main()
