"""Reading and writing pictures as numpy arrays, with nothing but the
standard library: PGM and PPM (8-bit), PNG (8-bit grey, grey with alpha,
RGB, RGBA; not interlaced) and numpy's .npy files. Enough to feed a folder
of pictures to Sorn on a machine without an imaging package."""

import os
import struct
import zlib

import numpy as np

EXTENSIONS = (".png", ".pgm", ".ppm", ".npy")

_PNG_SIGNATURE = b"\x89PNG\r\n\x1a\n"
_PNG_CHANNELS = {0: 1, 2: 3, 4: 2, 6: 4}


def read_image(path):
    """The picture at path as an array: (rows, columns) for grey pictures,
    (rows, columns, channels) for others."""
    path = os.fspath(path)
    if path.lower().endswith(".npy"):
        return np.load(path)
    with open(path, "rb") as f:
        data = f.read()
    if data.startswith(_PNG_SIGNATURE):
        return _read_png(data, path)
    if data[:2] in (b"P5", b"P6"):
        return _read_pnm(data, path)
    raise ValueError(f"{path}: not a PNG, PGM, PPM or .npy file")


def grey(img):
    """A one-channel uint8 picture: colour pictures averaged with the weights
    of the luma of video (0.299, 0.587, 0.114), alpha dropped."""
    if img.ndim == 2:
        return img
    if img.shape[2] in (1, 2):
        return np.ascontiguousarray(img[..., 0])
    rgb = img[..., :3].astype(np.float32)
    luma = rgb @ np.array([0.299, 0.587, 0.114], np.float32)
    return np.clip(np.rint(luma), 0, 255).astype(np.uint8)


def write_pgm(path, img):
    """A one-channel uint8 array as a binary PGM file."""
    img = np.ascontiguousarray(img, dtype=np.uint8)
    with open(path, "wb") as f:
        f.write(b"P5\n%d %d\n255\n" % (img.shape[1], img.shape[0]))
        f.write(img.tobytes())


def write_png(path, img):
    """A uint8 array of 1 to 4 channels as a PNG file (no filtering)."""
    img = np.ascontiguousarray(img, dtype=np.uint8)
    channels = 1 if img.ndim == 2 else img.shape[2]
    colour = {1: 0, 2: 4, 3: 2, 4: 6}[channels]
    rows = img.reshape(img.shape[0], -1)
    raw = np.concatenate([np.zeros((rows.shape[0], 1), np.uint8), rows], axis=1).tobytes()

    def chunk(kind, body):
        return (struct.pack(">I", len(body)) + kind + body
                + struct.pack(">I", zlib.crc32(kind + body) & 0xFFFFFFFF))

    header = struct.pack(">IIBBBBB", img.shape[1], img.shape[0], 8, colour, 0, 0, 0)
    with open(path, "wb") as f:
        f.write(_PNG_SIGNATURE + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(raw, 6))
                + chunk(b"IEND", b""))


def _read_pnm(data, path):
    fields, pos = [], 2
    while len(fields) < 3:
        while data[pos:pos + 1].isspace():
            pos += 1
        if data[pos:pos + 1] == b"#":
            pos = data.index(b"\n", pos) + 1
            continue
        end = pos
        while not data[end:end + 1].isspace():
            end += 1
        fields.append(int(data[pos:end]))
        pos = end
    width, height, maxval = fields
    if maxval > 255:
        raise ValueError(f"{path}: only 8-bit PGM and PPM files are read")
    channels = 1 if data[:2] == b"P5" else 3
    pixels = np.frombuffer(data, np.uint8, width * height * channels, pos + 1)
    return pixels.reshape((height, width) if channels == 1 else (height, width, channels)).copy()


def _read_png(data, path):
    pos, idat, header = 8, [], None
    while pos < len(data):
        length, kind = struct.unpack(">I4s", data[pos:pos + 8])
        body = data[pos + 8:pos + 8 + length]
        if kind == b"IHDR":
            header = struct.unpack(">IIBBBBB", body)
        elif kind == b"IDAT":
            idat.append(body)
        elif kind == b"IEND":
            break
        pos += 12 + length
    if header is None:
        raise ValueError(f"{path}: a PNG file without a header")
    width, height, depth, colour, _, _, interlace = header
    if depth != 8 or colour not in _PNG_CHANNELS or interlace:
        raise ValueError(f"{path}: only 8-bit PNG files without a palette or interlacing are read")
    channels = _PNG_CHANNELS[colour]
    stride = width * channels
    raw = np.frombuffer(zlib.decompress(b"".join(idat)), np.uint8).reshape(height, stride + 1)
    out = np.zeros((height, stride), np.uint8)
    prior = np.zeros(stride, np.int32)
    for y in range(height):
        kind, line = raw[y, 0], raw[y, 1:].astype(np.int32)
        if kind == 1:  # sub: each byte adds the byte one pixel to the left
            line = line.reshape(width, channels).cumsum(axis=0).reshape(-1)
        elif kind == 2:  # up
            line = line + prior
        elif kind in (3, 4):  # average, Paeth: byte by byte
            line = line.copy()
            for x in range(stride):
                left = line[x - channels] if x >= channels else 0
                up = prior[x]
                if kind == 3:
                    line[x] = (line[x] + (left + up) // 2) & 0xFF
                    continue
                upleft = prior[x - channels] if x >= channels else 0
                p = left + up - upleft
                pa, pb, pc = abs(p - left), abs(p - up), abs(p - upleft)
                pred = left if pa <= pb and pa <= pc else up if pb <= pc else upleft
                line[x] = (line[x] + pred) & 0xFF
        out[y] = line & 0xFF
        prior = out[y].astype(np.int32)
    return out.reshape((height, width) if channels == 1 else (height, width, channels))
