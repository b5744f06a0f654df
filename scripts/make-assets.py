#!/usr/bin/env python3
"""Generates the client's artwork and notification sounds.

Everything is drawn and synthesised here from code, with the standard library
only, so the committed files can be rebuilt byte for byte:

    scripts/make-assets.py            write the files into the source tree
    scripts/make-assets.py --check    exit 1 if a committed file differs

Images are described as layers of signed-distance shapes in a small design
grid and rendered with one-pixel analytic antialiasing; sounds are sums of
decaying sine partials.
"""

import argparse
import io
import math
import os
import struct
import sys
import wave
import zlib

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))

TEAL = (0x41, 0x9A, 0xB1)
TEAL_LIGHT = (0x5C, 0xB6, 0xCB)
TEAL_DARK = (0x2F, 0x7A, 0x8E)
WHITE = (0xFF, 0xFF, 0xFF)
BLACK = (0x00, 0x00, 0x00)
INK = (0x3C, 0x40, 0x43)
BLUE = (0x1E, 0x88, 0xE5)
AMBER = (0xF5, 0xB3, 0x00)


# ---------------------------------------------------------------------------
# Signed distance shapes. Negative inside, positive outside, in design units.

def _clamp(v, lo, hi):
    return lo if v < lo else hi if v > hi else v


def circle(cx, cy, r):
    return lambda x, y: math.hypot(x - cx, y - cy) - r


def rounded_rect(x0, y0, x1, y1, r):
    cx, cy = (x0 + x1) / 2.0, (y0 + y1) / 2.0
    hx, hy = (x1 - x0) / 2.0 - r, (y1 - y0) / 2.0 - r

    def sdf(x, y):
        qx = abs(x - cx) - hx
        qy = abs(y - cy) - hy
        outside = math.hypot(max(qx, 0.0), max(qy, 0.0))
        return outside + min(max(qx, qy), 0.0) - r
    return sdf


def capsule(ax, ay, bx, by, r):
    """A segment from a to b, thickened by r, with round ends."""
    dx, dy = bx - ax, by - ay
    length2 = dx * dx + dy * dy

    def sdf(x, y):
        px, py = x - ax, y - ay
        t = _clamp((px * dx + py * dy) / length2, 0.0, 1.0) if length2 else 0.0
        return math.hypot(px - dx * t, py - dy * t) - r
    return sdf


def polygon(points):
    pts = list(points)
    edges = list(zip(pts, pts[1:] + pts[:1]))

    def sdf(x, y):
        best = float("inf")
        inside = False
        for (ax, ay), (bx, by) in edges:
            dx, dy = bx - ax, by - ay
            px, py = x - ax, y - ay
            length2 = dx * dx + dy * dy
            t = _clamp((px * dx + py * dy) / length2, 0.0, 1.0) if length2 else 0.0
            d = math.hypot(px - dx * t, py - dy * t)
            if d < best:
                best = d
            if (ay > y) != (by > y):
                xc = ax + (y - ay) * dx / dy
                if x < xc:
                    inside = not inside
        return -best if inside else best
    return sdf


def arc(cx, cy, radius, start_deg, end_deg, half_width):
    """A stroke along a circle from start to end angle (degrees, y down,
    counter-clockwise on screen is negative), with round caps."""
    a0 = math.radians(start_deg)
    span = math.radians(end_deg - start_deg) % (2 * math.pi)
    e0 = (cx + radius * math.cos(a0), cy + radius * math.sin(a0))
    a1 = a0 + span
    e1 = (cx + radius * math.cos(a1), cy + radius * math.sin(a1))

    def sdf(x, y):
        ang = (math.atan2(y - cy, x - cx) - a0) % (2 * math.pi)
        if ang <= span:
            return abs(math.hypot(x - cx, y - cy) - radius) - half_width
        return min(math.hypot(x - e0[0], y - e0[1]),
                   math.hypot(x - e1[0], y - e1[1])) - half_width
    return sdf


def outline(shape, half_width):
    return lambda x, y: abs(shape(x, y)) - half_width


def union(*shapes):
    return lambda x, y: min(s(x, y) for s in shapes)


def subtract(shape, *holes):
    return lambda x, y: max(shape(x, y), *(-h(x, y) for h in holes))


def rotated(shape, cx, cy, degrees):
    c, s = math.cos(math.radians(-degrees)), math.sin(math.radians(-degrees))

    def sdf(x, y):
        dx, dy = x - cx, y - cy
        return shape(cx + dx * c - dy * s, cy + dx * s + dy * c)
    return sdf


def vertical_gradient(top, bottom, y0, y1):
    def colour(_x, y):
        t = _clamp((y - y0) / (y1 - y0), 0.0, 1.0)
        return tuple(a + (b - a) * t for a, b in zip(top, bottom))
    return colour


# ---------------------------------------------------------------------------
# Rendering and PNG output.

def render(size, grid, layers):
    """Layers are (shape, colour[, opacity]) drawn in order over transparency.
    A colour is an RGB tuple or a function of the design coordinates."""
    scale = size / float(grid)
    rows = []
    for j in range(size):
        y = (j + 0.5) / scale
        row = bytearray()
        for i in range(size):
            x = (i + 0.5) / scale
            r = g = b = a = 0.0  # premultiplied
            for layer in layers:
                shape, colour = layer[0], layer[1]
                opacity = layer[2] if len(layer) > 2 else 1.0
                cov = _clamp(0.5 - shape(x, y) * scale, 0.0, 1.0) * opacity
                if cov <= 0.0:
                    continue
                cr, cg, cb = colour(x, y) if callable(colour) else colour
                keep = 1.0 - cov
                r = cr * cov + r * keep
                g = cg * cov + g * keep
                b = cb * cov + b * keep
                a = 255.0 * cov + a * keep
            if a > 0.0:
                k = 255.0 / a
                px = (r * k, g * k, b * k, a)
            else:
                px = (0.0, 0.0, 0.0, 0.0)
            row.extend(int(_clamp(round(v), 0, 255)) for v in px)
        rows.append(bytes(row))
    return rows


def png_bytes(rows):
    height = len(rows)
    width = len(rows[0]) // 4

    def chunk(tag, data):
        body = tag + data
        return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body) & 0xFFFFFFFF)

    raw = b"".join(b"\x00" + row for row in rows)
    ihdr = struct.pack(">IIBBBBB", width, height, 8, 6, 0, 0, 0)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", ihdr)
            + chunk(b"IDAT", zlib.compress(raw, 9)) + chunk(b"IEND", b""))


# ---------------------------------------------------------------------------
# Artwork. Each function returns (grid, layers) for render().

def speech_bubble(x0, y0, x1, y1):
    """A rounded message bubble with its tail at the lower left."""
    w, h = x1 - x0, y1 - y0
    body = rounded_rect(x0, y0, x1, y1, min(w, h) * 0.42)
    tail = polygon([(x0 + w * 0.16, y1 - h * 0.30),
                    (x0 + w * 0.42, y1 - h * 0.10),
                    (x0 + w * 0.04, y1 + h * 0.28)])
    return union(body, tail)


def app_icon(small=False):
    grid = 64.0
    background = rounded_rect(2, 2, 62, 62, 13)
    layers = [(background, vertical_gradient(TEAL_LIGHT, TEAL_DARK, 2, 62))]
    bubble = speech_bubble(13, 15, 51, 43) if not small else speech_bubble(10, 12, 54, 44)
    layers.append((bubble, WHITE))
    if not small:
        for cx in (23.5, 32.0, 40.5):
            layers.append((circle(cx, 29, 3.4), TEAL))
    return grid, layers


def play_arrow():
    return 24.0, [(polygon([(8, 5), (8, 19), (19, 12)]), BLACK)]


def pencil(cx, cy, length, width, degrees):
    """A pencil lying along the x axis with its point to the left, rotated."""
    x0 = cx - length / 2.0
    hw = width / 2.0
    tip = polygon([(x0, cy), (x0 + width * 1.2, cy - hw), (x0 + width * 1.2, cy + hw)])
    body = rounded_rect(x0 + width * 1.2, cy - hw, cx + length / 2.0, cy + hw, hw * 0.35)
    eraser = rounded_rect(cx + length / 2.0 - width * 0.9, cy - hw, cx + length / 2.0, cy + hw, hw * 0.35)
    lead = polygon([(x0, cy), (x0 + width * 0.45, cy - hw * 0.38), (x0 + width * 0.45, cy + hw * 0.38)])
    return [rotated(s, cx, cy, degrees) for s in (body, tip, eraser, lead)]


def compose_new():
    page = outline(rounded_rect(5, 7, 23, 27, 3), 1.2)
    erase = rotated(rounded_rect(8, 12.5, 32, 21.5, 2), 19, 17, -45)
    body, tip, eraser, lead = pencil(19, 17, 20, 5.5, -45)
    return 32.0, [(subtract(page, erase), INK),
                  (body, TEAL), (tip, (0xF0, 0xD9, 0xB5)), (eraser, TEAL_DARK), (lead, INK)]


def popup_menu_logo():
    grid, layers = app_icon(small=True)
    return grid, layers


def charging_bolt():
    bolt = polygon([(18.5, 2), (6.5, 18), (14.5, 18), (12.5, 30), (25.5, 12.5), (17, 12.5)])
    return 32.0, [(bolt, BLUE)]


def handset(cx, cy, size):
    """A telephone handset: a grip bowed to the lower left, with the ear and
    mouth pieces lying across its two ends on the inner side."""
    s = size / 32.0
    ox, oy, radius = cx + 9.0 * s, cy - 9.0 * s, 18.0 * s
    grip = arc(ox, oy, radius, 97, 173, 2.6 * s)
    pieces = []
    for degrees in (99, 171):
        a = math.radians(degrees)
        ux, uy = math.cos(a), math.sin(a)
        px, py = ox + ux * (radius - 2.2 * s), oy + uy * (radius - 2.2 * s)
        tx, ty = -uy * 3.2 * s, ux * 3.2 * s
        pieces.append(capsule(px - tx, py - ty, px + tx, py + ty, 3.4 * s))
    return union(grip, *pieces)


def phone_dialer_plain():
    # Handset beside a key pad: the dialer entry of the tray menu.
    layers = [(handset(11.5, 11.5, 24), TEAL)]
    for row in range(3):
        for col in range(3):
            layers.append((circle(21 + col * 4.3, 21 + row * 4.3, 1.5), TEAL))
    return 32.0, layers


def phone_dialer_round():
    return 32.0, [(circle(16, 16, 15), TEAL), (handset(16, 16, 22), WHITE)]


def live_phone_view():
    device = rounded_rect(8, 2.5, 24, 29.5, 3.2)
    screen = rounded_rect(10, 6, 22, 24.5, 1)
    layers = [(subtract(device, screen), TEAL),
              (circle(16, 27, 1.1), WHITE),
              (rounded_rect(12, 9, 20, 12, 1.2), TEAL_LIGHT),
              (rounded_rect(12, 14, 18, 16.2, 1.1), TEAL_LIGHT, 0.7),
              (circle(22.5, 5, 4.6), WHITE),
              (circle(22.5, 5, 3.4), AMBER)]
    return 32.0, layers


def volume_up():
    speaker = polygon([(3, 9), (7, 9), (12, 4), (12, 20), (7, 15), (3, 15)])
    return 24.0, [(speaker, BLACK),
                  (arc(12, 12, 4.2, -50, 50, 1.1), BLACK),
                  (arc(12, 12, 8.0, -55, 55, 1.1), BLACK)]


def help_icon():
    ring = outline(circle(16, 16, 13), 1.6)
    hook = arc(16, 12.2, 4.4, 190, 450, 1.7)
    stem = capsule(16, 16.6, 16, 18.6, 1.7)
    dot = circle(16, 23.4, 1.9)
    return 32.0, [(ring, TEAL), (union(hook, stem, dot), TEAL)]


def send_link():
    left = rotated(outline(capsule(6, 16, 15, 16, 4.6), 1.5), 10.5, 16, -45)
    right = rotated(outline(capsule(17, 16, 26, 16, 4.6), 1.5), 21.5, 16, -45)
    return 32.0, [(left, TEAL), (right, TEAL)]


def text_bubble():
    layers = [(speech_bubble(3, 5, 29, 24), TEAL)]
    layers.append((capsule(9, 11.5, 23, 11.5, 1.2), WHITE))
    layers.append((capsule(9, 16.5, 19, 16.5, 1.2), WHITE))
    return 32.0, layers


IMAGES = [
    # (path, pixel size, artwork)
    # The usual hicolor sizes: panels and launchers scale none of them. Below 32 px the dots would blur.
    ("kestrelgap.iconset/icon_16x16.png", 16, lambda: app_icon(small=True)),
    ("kestrelgap.iconset/icon_22x22.png", 22, lambda: app_icon(small=True)),
    ("kestrelgap.iconset/icon_24x24.png", 24, lambda: app_icon(small=True)),
    ("kestrelgap.iconset/icon_32x32.png", 32, app_icon),
    ("kestrelgap.iconset/icon_48x48.png", 48, app_icon),
    ("kestrelgap.iconset/icon_64x64.png", 64, app_icon),
    ("kestrelgap.iconset/icon_128x128.png", 128, app_icon),
    ("kestrelgap.iconset/icon_256x256.png", 256, app_icon),
    ("kestrelgap.iconset/icon_512x512.png", 512, app_icon),
    ("resources/images/kestrelgap.iconset/icon_128x128.png", 128, app_icon),
    ("resources/images/kestrelgap.iconset/icon_black_play_arrow.png", 24, play_arrow),
    ("resources/images/kestrelgap.iconset/compose_new.png", 32, compose_new),
    ("resources/images/kestrelgap.iconset/popup_menu_logo.png", 32, popup_menu_logo),
    ("resources/images/kestrelgap.iconset/icon-charging-blue.png", 32, charging_bolt),
    ("resources/images/kestrelgap.iconset/teal_phone_dialer_logo2.png", 32, phone_dialer_plain),
    ("resources/images/kestrelgap.iconset/teal_pnlv_logo.png", 32, live_phone_view),
    ("resources/images/kestrelgap.iconset/icon_black_volume_up.png", 24, volume_up),
    ("resources/images/kestrelgap.iconset/icon_help.png", 32, help_icon),
    ("resources/images/kestrelgap.iconset/send_link.png", 32, send_link),
    ("resources/images/kestrelgap.iconset/teal_phone_dialer_logo.png", 32, phone_dialer_round),
    ("resources/images/kestrelgap.iconset/text_bubble.png", 32, text_bubble),
]


# ---------------------------------------------------------------------------
# Sounds.

RATE = 22050
FADE_IN = 0.004
FADE_OUT = 0.030
NOTE_RELEASE = 0.015  # each note ends on a short ramp, not a cut
PEAK = 0.6


def note(freq, start, length, decay, partials=((1.0, 1.0),), glide=0.0):
    """A struck tone: partials are (frequency ratio, amplitude); glide bends
    the pitch by that many semitones over the note."""
    return (freq, start, length, decay, partials, glide)


def synthesise(duration, notes):
    count = int(round(duration * RATE))
    samples = [0.0] * count
    for freq, start, length, decay, partials, glide in notes:
        first = int(round(start * RATE))
        last = min(count, first + int(round(length * RATE)))
        phase = [0.0] * len(partials)
        for n in range(first, last):
            t = (n - first) / RATE
            bend = 2.0 ** (glide * t / length / 12.0) if glide else 1.0
            env = math.exp(-t / decay)
            attack = min(1.0, t / 0.003)
            release = min(1.0, (last - 1 - n) / (NOTE_RELEASE * RATE))
            value = 0.0
            for k, (ratio, amp) in enumerate(partials):
                phase[k] += 2.0 * math.pi * freq * ratio * bend / RATE
                value += amp * math.sin(phase[k])
            samples[n] += value * env * attack * release
    top = max(abs(s) for s in samples) or 1.0
    fade_in, fade_out = int(FADE_IN * RATE), int(FADE_OUT * RATE)
    frames = bytearray()
    for n, s in enumerate(samples):
        gain = PEAK / top
        if n < fade_in:
            gain *= n / fade_in
        if n >= count - fade_out:
            gain *= (count - 1 - n) / fade_out
        frames.extend(struct.pack("<h", int(round(_clamp(s * gain, -1.0, 1.0) * 32767))))
    return bytes(frames)


BELL = ((1.0, 1.0), (2.76, 0.28), (5.40, 0.10))
GLASS = ((1.0, 1.0), (2.0, 0.35), (3.0, 0.12))
METAL = ((1.0, 1.0), (2.32, 0.5), (4.25, 0.3), (6.8, 0.15))
WARM = ((1.0, 1.0), (2.0, 0.5), (3.0, 0.3), (4.0, 0.15))

SOUNDS = [
    # (path, duration, notes)
    ("resources/sounds/ping.wav", 0.40, [note(1318.5, 0.0, 0.40, 0.11, GLASS)]),
    ("resources/sounds/proxima.wav", 0.50, [note(880.0, 0.0, 0.20, 0.09, BELL),
                                            note(1318.5, 0.12, 0.38, 0.12, BELL)]),
    ("resources/sounds/spring.wav", 0.42, [note(392.0, 0.0, 0.42, 0.16, WARM, glide=19.0)]),
    ("resources/sounds/pillsbury.wav", 0.55, [note(1046.5, 0.0, 0.18, 0.06, GLASS),
                                              note(1318.5, 0.09, 0.18, 0.06, GLASS),
                                              note(1568.0, 0.18, 0.37, 0.10, GLASS)]),
    ("resources/sounds/tink.wav", 0.20, [note(2637.0, 0.0, 0.20, 0.035, METAL)]),
    ("resources/sounds/yeah.wav", 0.58, [note(587.3, 0.0, 0.22, 0.10, WARM, glide=2.0),
                                         note(740.0, 0.16, 0.42, 0.15, WARM, glide=-0.5)]),
    ("resources/sounds/catch.wav", 0.32, [note(1568.0, 0.0, 0.14, 0.05, BELL),
                                          note(1174.7, 0.08, 0.24, 0.07, BELL)]),
]


def app_icon_svg():
    """The launcher icon as vector art, the same drawing as app_icon() on its 64-unit grid."""
    x0, y0, x1, y1 = 13, 15, 51, 43
    w, h = x1 - x0, y1 - y0
    r = min(w, h) * 0.42
    tail = [(x0 + w * 0.16, y1 - h * 0.30), (x0 + w * 0.42, y1 - h * 0.10), (x0 + w * 0.04, y1 + h * 0.28)]
    hexc = lambda c: "#%02x%02x%02x" % c
    dots = "".join('<circle cx="%g" cy="29" r="3.4" fill="%s"/>' % (cx, hexc(TEAL)) for cx in (23.5, 32.0, 40.5))
    svg = ('<svg xmlns="http://www.w3.org/2000/svg" width="64" height="64" viewBox="0 0 64 64">'
           '<defs><linearGradient id="g" x1="0" y1="2" x2="0" y2="62" gradientUnits="userSpaceOnUse">'
           '<stop offset="0" stop-color="%s"/><stop offset="1" stop-color="%s"/></linearGradient></defs>'
           '<rect x="2" y="2" width="60" height="60" rx="13" fill="url(#g)"/>'
           '<rect x="%g" y="%g" width="%g" height="%g" rx="%.2f" fill="#ffffff"/>'
           '<polygon points="%s" fill="#ffffff"/>%s</svg>\n') % (
        hexc(TEAL_LIGHT), hexc(TEAL_DARK), x0, y0, w, h, r,
        " ".join("%.2f,%.2f" % p for p in tail), dots)
    return svg.encode("ascii")


def wav_bytes(frames):
    buf = io.BytesIO()
    with wave.open(buf, "wb") as out:
        out.setnchannels(1)
        out.setsampwidth(2)
        out.setframerate(RATE)
        out.writeframes(frames)
    return buf.getvalue()


# ---------------------------------------------------------------------------

def generate():
    for path, size, artwork in IMAGES:
        grid, layers = artwork()
        yield path, png_bytes(render(size, grid, layers))
    for path, duration, notes in SOUNDS:
        yield path, wav_bytes(synthesise(duration, notes))
    yield "kestrelgap.iconset/icon_scalable.svg", app_icon_svg()


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--check", action="store_true",
                        help="compare with the files in the tree instead of writing them")
    parser.add_argument("--root", default=ROOT, help="source tree to write into (default: %(default)s)")
    args = parser.parse_args()

    stale = []
    for path, data in generate():
        target = os.path.join(args.root, path)
        try:
            with open(target, "rb") as f:
                same = f.read() == data
        except OSError:
            same = False
        if args.check:
            if not same:
                stale.append(path)
            continue
        if not same:
            os.makedirs(os.path.dirname(target), exist_ok=True)
            with open(target, "wb") as f:
                f.write(data)
            print("wrote", path)
    if stale:
        print("out of date:", " ".join(stale), file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
