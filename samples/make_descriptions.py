#!/usr/bin/env python3
"""Writes the sample module's JSON descriptions (module.json, module_nvm.json).

The descriptions are the sample's source: edit them by hand or change this
script and run it again, then rebuild the packed files with
scripts/pack-samples.sh. Only the standard library is used.
"""
import json
import math
import os

HERE = os.path.dirname(os.path.abspath(__file__))
W, H = 17, 13            # tuning grid of the lens-shading records
ILLUMINANTS = [2856, 4000, 5003, 6504]
BAYER_MAP = [0, 1, -1, -1, 2, 3, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1]


def f(name, kind, value, at=None):
    field = {"name": name}
    if at is not None:
        field["at"] = at
    field[kind] = value
    return field


def radial(x, y, w, h):
    """Squared distance from the grid centre, 0 at the centre, about 1 at a corner."""
    dx = (x - (w - 1) / 2) / ((w - 1) / 2)
    dy = (y - (h - 1) / 2) / ((h - 1) / 2)
    return (dx * dx + dy * dy) / 2


def grid(fn, w=W, h=H):
    return [[fn(x, y) for x in range(w)] for y in range(h)]


def lens_shading_record():
    # Gains in 12-bit fixed point (4096 = 1.0), rising towards the corners,
    # more for red (grid 0) than for blue (grid 3) under warmer light.
    fields = [f("grid_map", "i8", BAYER_MAP, 8), f("num_sets", "u16", 4, 24),
              f("unused", "u16", 0, 26), f("grid_width", "u16", W, 28),
              f("grid_height", "u16", H, 30)]
    for s, cct in enumerate(ILLUMINANTS):
        fields += [f(f"set{s}.set_id", "u32", cct), f(f"set{s}.set_params", "f32", [cct / 1000, 1.0, 0.25, 4.0]),
                   f(f"set{s}.grid_bits_stored", "u16", 4)]
        for g in range(4):
            falloff = 1.3 - 0.08 * g - 0.05 * s
            fields.append(f(f"set{s}.grid{g}", "u16",
                            grid(lambda x, y: round(4096 * (1 + falloff * radial(x, y, W, H))))))
    return {"id": 28, "version": 100, "comment": "lens-shading grids: 4 sets of 17 x 13, 2 x 2 pattern",
            "fields": fields}


def ratio_record():
    # Ratios near 1.0 in 12-bit fixed point; the 6504 K set was exported in
    # 16-bit fixed point (stored 0), whose samples wrap once the module gain
    # lifts them to 1.0 or more.
    fields = [f("grid_map", "i8", BAYER_MAP, 8), f("num_sets", "u16", 4, 24),
              f("unused", "u16", 0, 26), f("grid_width", "u16", W, 28),
              f("grid_height", "u16", H, 30)]
    for s, cct in enumerate(ILLUMINANTS):
        stored = 0 if s == 3 else 4
        one = 65536 if s == 3 else 4096
        fields += [f(f"set{s}.set_id", "u16", cct), f(f"set{s}.nvm_table", "u16", s),
                   f(f"set{s}.set_params", "f32", [cct / 1000, 0.5, 0.75, 1.0]),
                   f(f"set{s}.grid_bits_stored", "u16", stored)]
        for g in range(4):
            base = 0.97 - 0.01 * g if s < 3 else 0.62 + 0.02 * g
            fields.append(f(f"set{s}.grid{g}", "u16",
                            grid(lambda x, y: min(65535, round(one * (base + 0.04 * radial(x, y, W, H)))))))
    return {"id": 33, "version": 100, "comment": "ratio grids: set k multiplies NVM table k + 1",
            "fields": fields}


def records():
    r = []
    r.append({"id": 1, "version": 101, "comment": "module name and key/value pairs", "fields": [
        f("unused", "zeros", 16, 8), f("name", "str", "ej-cam-imx-demo", 24), f("pair_count", "u16", 3),
        f("pair0.key", "str", "lens"), f("pair0.value", "str", "L1-4.2mm"),
        f("pair1.key", "str", "sensor"), f("pair1.value", "str", "S4-12MP"),
        f("pair2.key", "str", "integrator"), f("pair2.value", "str", "demo-line-3")]})
    r.append({"id": 2, "version": 103, "comment": "fixed-layout record", "fields": [
        f("v100_fields", "hex", "04030201", 8), f("v100_value", "u16", 7, 12),
        f("cfa_pattern", "u16", 1, 14), f("v101_value", "u16", 9, 16),
        f("v102_fields", "hex", "22" * 16, 18), f("v103_value", "u16", 11, 34), f("pad", "pad_to", 40)]})
    r.append({"id": 5, "version": 100, "comment": "kept whole", "hex": "05" * 8})
    r.append({"id": 6, "version": 100, "comment": "kept whole, values viewed from offset 16", "fields": [
        f("unused", "zeros", 4, 8), f("counts", "u8", [1, 1, 0, 0], 12), f("values", "u16", [100, 200], 16),
        f("pad", "pad_to", 24)]})
    r.append({"id": 7, "version": 100, "comment": "kept whole", "hex": "07" * 8})
    r.append({"id": 8, "version": 100, "comment": "kept whole, empty", "fields": []})
    r.append({"id": 9, "version": 100, "comment": "completed by the container parser", "hex": "09" * 24})
    r.append({"id": 13, "version": 102, "comment": "table with derived arrays", "fields": [
        f("data", "hex", "13" * 62, 8), f("count", "u16", 3, 70), f("values", "u16", [11, 12, 13], 72),
        f("params", "u16", [5, 6, 7, 8], 78), f("pad", "pad_to", 88)]})
    r.append({"id": 14, "version": 100, "comment": "table viewed by start, end and step", "fields": [
        f("start", "u16", 0, 8), f("end", "u16", 10, 10), f("step", "u16", 5, 12),
        f("table", "hex", "14" * 64, 14), f("pad", "pad_to", 80)]})
    curves = [(7, [0, 512, 1023], [0, 2048, 4095]), (8, [], []), (9, [256], [1024])]
    fields15 = [f("rows_abc", "u16", 3, 8), f("rows_d", "u16", 2, 10)]
    for t, name in enumerate("abcd"):
        fields15.append(f(f"table_{name}", "hex", "".join(f"{0x10 * t + i:02x}" * 8 for i in range(3 if t < 3 else 2))))
    fields15.append(f("curve_count", "u16", len(curves)))
    for k, (value, first, second) in enumerate(curves):
        fields15 += [f(f"curve{k}.head", "hex", "c0" * 8), f(f"curve{k}.value", "u16", value),
                     f(f"curve{k}.count", "u16", len(first)), f(f"curve{k}.first", "u16", first),
                     f(f"curve{k}.second", "u16", second)]
    end15 = 8 + 4 + 8 * (3 * 3 + 2) + 2 + sum(12 + 4 * len(first) for _, first, _ in curves)
    fields15.append(f("pad", "pad_to", (end15 + 7) // 8 * 8))
    r.append({"id": 15, "version": 100, "comment": "tables and curves", "fields": fields15})
    r.append({"id": 16, "version": 100, "comment": "kept whole, 4-byte values from offset 14", "fields": [
        f("unused", "zeros", 4, 8), f("count", "u16", 2, 12), f("values", "u32", [0xabcd, 0x1234], 14),
        f("pad", "pad_to", 24)]})
    r.append({"id": 17, "version": 101, "comment": "lens-shading control", "fields": [
        f("unused", "zeros", 2, 8), f("channel_order", "u16", 3, 10), f("flip_mode", "u16", 0, 12),
        f("border_mode", "u16", 2, 14), f("pad", "pad_to", 16)]})
    r.append({"id": 18, "version": 101, "comment": "84-byte entries and trailing data", "fields": [
        f("count", "u16", 1, 8), f("entry0", "hex", "18" * 84, 10), f("trailing", "hex", "81" * 8, 94),
        f("pad", "pad_to", 112)]})
    r.append({"id": 19, "version": 100, "comment": "entries and values in unsigned 16.16", "fields": [
        f("carried", "u16", 3, 8), f("unused", "u16", 0, 10), f("entry_count", "u16", 1, 12),
        f("value_count", "u16", 1, 14), f("entry0.a", "u32", 98304, 16), f("entry0.b", "u32", 131072, 20),
        f("entry0.rest", "hex", "19" * 20, 24), f("value0", "u32", 65536, 44), f("value0.word", "u32", 5, 48),
        f("pad", "pad_to", 56)]})
    r.append({"id": 20, "version": 102, "comment": "list of values in unsigned 16.16", "fields": [
        f("carried_a", "u16", 4, 8), f("carried_b", "u16", 5, 10), f("carried_c", "u8", 6, 12),
        f("v101_byte", "u8", 7, 13), f("list_type", "u16", 1, 14), f("list_length", "u16", 2, 16),
        f("unused", "u16", 0, 18), f("list", "u32", [32768, 1, 65536, 2], 20), f("pad", "pad_to", 40)]})
    r.append({"id": 21, "version": 100, "comment": "kept whole", "hex": "21" * 8})
    wf = [f("word_a", "hex", "a4a3a2a1", 8), f("map_width", "i16", 2, 12), f("map_height", "i16", 1, 14),
          f("word_b", "hex", "b4b3b2b1", 16), f("num_maps", "u16", 2, 20)]
    for k in range(2):
        wf += [f(f"map{k}.map_id", "u16", 0x70 + k), f(f"map{k}.plane_a", "u32", [0x1000 * (k + 1), 0x1000 * (k + 1) + 1]),
               f(f"map{k}.plane_b", "u32", [0x1000 * (k + 1) + 2, 0x1000 * (k + 1) + 3])]
    wf += [f("ext_value", "u32", 0xe0e0e0e0), f("num_units", "i32", 1), f("unit0", "hex", "55" * 1040),
           f("inline_unit.table", "hex", "66" * 1024), f("inline_unit.values", "u32", [1, 2, 3, 4]),
           f("ext2_value", "f32", 2.5), f("num_elements", "i32", 2),
           f("element0", "f32", [1.0, 2.0]), f("element0.c_and_count", "u32", [7, 2]), f("element0.values", "u32", [11, 12]),
           f("element1", "f32", [3.0, 4.0]), f("element1.c_and_count", "u32", [8, 1]), f("element1.values", "u32", [13]),
           f("trailing", "hex", "77" * 48)]
    r.append({"id": 22, "version": 102, "comment": "wide field-of-view distortion", "fields": wf})
    r.append({"id": 23, "version": 100, "comment": "kept whole", "hex": "23" * 16})
    r.append({"id": 24, "version": 100, "comment": "value table: 2 entries", "fields": [
        f("unused", "hex", "24" * 6, 8), f("num_entries", "u16", 2, 14),
        f("entry0.head", "hex", "e0e0" + "0200" + "e1" * 12, 16), f("entry0.values", "u32", [101, 102]),
        f("entry1.head", "hex", "e2e2" + "0300" + "e3" * 12), f("entry1.values", "u32", [201, 202, 203])]})
    f25 = [f("num_entries", "u16", 2, 8), f("tail_blocks", "u16", 1, 10), f("values", "u32", [0xdeadbeef], 12)]
    for e in range(2):
        f25 += [f(f"entry{e}.head", "hex", f"{0x40 + e:02x}" * 24), f(f"entry{e}.block", "hex", f"{0x50 + e:02x}" * 36),
                f(f"entry{e}.tail0", "hex", f"{0x60 + e:02x}" * 36)]
    r.append({"id": 25, "version": 101, "comment": "block entries", "fields": f25})
    r.append({"id": 26, "version": 101, "comment": "dual factor block", "fields": [
        f("base_word", "hex", "26" * 8, 8), f("block0.word", "hex", "b1" * 8, 16),
        f("block0.factors", "f32", [0.5, 1.5, 2.5, 3.5], 24), f("block1.word", "hex", "b2" * 8, 40),
        f("block1.factors", "f32", [4.5, 5.5, 6.5, 7.5], 48)]})
    f27 = [f("unused", "hex", "27" * 16, 8), f("num_elements", "u16", 2, 24), f("planes", "u16", 2, 26),
           f("plane_width", "u16", 2, 28), f("plane_height", "u16", 1, 30)]
    for e in range(2):
        f27 += [f(f"element{e}.head", "hex", f"{0x90 + e:02x}" * 20),
                f(f"element{e}.samples", "u16", [100 * e + s for s in range(4)])]
    f27.append(f("trailer", "hex", "7e" * 32))
    r.append({"id": 27, "version": 101, "comment": "plane grids", "fields": f27})
    r.append(lens_shading_record())
    r.append({"id": 29, "version": 100, "comment": "four planes of 2 x 1", "fields": [
        f("word", "u32", 0x29292929, 8), f("width", "u16", 2, 12), f("height", "u16", 1, 14),
        f("word2", "u32", 0x2a2a2a2a, 16), f("planes", "u32", [0x29000000 + i for i in range(8)], 20),
        f("pad", "pad_to", 56)]})
    r.append({"id": 30, "version": 102, "comment": "map blended with the module's NVM map", "fields": [
        f("unused", "hex", "30" * 8, 8), f("num_items", "u16", 2, 16), f("unused2", "hex", "00" * 4, 18),
        f("table_width", "u16", 5, 22), f("table_height", "u16", 3, 24), f("aux_width", "u16", 2, 26),
        f("aux_height", "u16", 1, 28), f("items", "hex", "010203040506" "0708090a0b0c", 30),
        f("blend_factor", "f32", 0.6, 42),
        f("table", "i32", grid(lambda x, y: 1000 + 20 * x + 10 * y, 5, 3), 46),
        f("aux", "u32", [0x31, 0x32], 106), f("pad", "pad_to", 120)]})
    r.append({"id": 31, "version": 100, "comment": "table in the container parser's reference form", "fields": [
        f("count", "u32", 2, 8), f("reserved", "u32", 0, 12), f("entries_ref", "u64", 24, 16),
        f("entry0", "u32", [0x3100, 0x3f800000, 0x3f000000, 0x40000000] + [0] * 14, 24),
        f("entry1", "u32", [0x3101, 0x40000000, 0x3f800000, 0x40000000] + [0] * 14, 96)]})
    r.append({"id": 32, "version": 101, "comment": "completed by the container parser", "hex": "32" * 8})
    r.append(ratio_record())
    r.append({"id": 35, "version": 100, "comment": "compand curve, 2 segments", "fields": [
        f("ctrl_byte", "u8", 0x35, 8), f("ctrl_word", "u32", 0x01020304, 9), f("num_segments", "u8", 2, 13),
        f("x_points", "u32", [0, 1000, 65535], 14), f("y_points", "u16", [0, 100, 4095], 26),
        f("compand_slopes", "u16", [25, 30], 32), f("decompand_slopes", "u32", [40, 50], 36)]})
    r.append({"id": 36, "version": 100, "comment": "sensor decompanding, 2 points", "fields": [
        f("ctrl_byte", "u8", 0x36, 8), f("ctrl_word", "hex", "0d0c0b0a", 9), f("num_points", "u8", 2, 13),
        f("x_points", "u16", [10, 20], 14), f("y_points", "u32", [1000, 2000], 18)]})
    r.append({"id": 37, "version": 100, "comment": "kept whole", "hex": "37" * 8})
    r.append({"id": 38, "version": 100, "comment": "cbd, 2 entries", "fields": [
        f("cbd_byte", "u8", 0x38, 8), f("num_entries", "u8", 2, 9), f("first_values", "u32", [1, 2], 10),
        f("second_values", "u32", [3, 4], 18)]})
    r.append({"id": 10, "version": 101, "comment": "older lens-shading form: after id 28 only its views are kept",
              "fields": [
                  f("unused", "u16", 0xeeee, 8), f("num_sets", "u16", 1, 10), f("grid_width", "u16", 3, 12),
                  f("grid_height", "u16", 2, 14), f("set0.set_id", "u16", 21, 16), f("set0.unused", "u16", 0, 18),
                  f("set0.params_q016", "u16", [0x8000, 0x4000], 20),
                  f("set0.grids", "u16", [[1000 + 100 * g + i for i in range(6)] for g in range(4)], 24),
                  f("param_pairs_q88", "u16", [0x0180, 0x0040], 72), f("pad", "pad_to", 80)]})
    r.append({"id": 722, "version": 100, "comment": "a record of another consumer (summarised into slot 63)",
              "fields": [f("value", "u32", 1, 8), f("count", "u32", 1, 12), f("entry0", "u64", 2, 16)]})
    return r


def nvm_description():
    tables = []
    for t in range(4):
        frac = 8 if t < 2 else 10
        scale = 255 if t < 2 else 1023
        channels = []
        for c in range(4):
            channels.append(grid(lambda x, y: round(scale * radial(x, y, W, H) * (0.8 + 0.05 * c - 0.04 * t))))
        tables.append({"comment": f"{ILLUMINANTS[t]} K", "frac_bits": frac, "channels": channels})
    return {"format": "nvm-blob", "format_version": 1,
            "comment": "the sample module's NVM calibration: 4 lens-shading tables on 17 x 13, a 9 x 7 map",
            "lens_shading": {"grid_width": W, "grid_height": H, "tables": tables},
            "map_calibration": {"width": 9, "height": 7, "shift": 4,
                                "values": grid(lambda x, y: 1600 + 10 * x - 7 * y, 9, 7)}}


def dump(value, indent=0):
    """JSON with one line per field and one line per grid row."""
    pad = "  " * indent
    if isinstance(value, dict):
        if all(not isinstance(v, (dict, list)) or (isinstance(v, list) and all(not isinstance(e, (dict, list)) for e in v))
               for v in value.values()) and len(json.dumps(value)) < 110:
            return json.dumps(value)
        items = [f'{pad}  {json.dumps(k)}: {dump(v, indent + 1)}' for k, v in value.items()]
        return "{\n" + ",\n".join(items) + "\n" + pad + "}"
    if isinstance(value, list):
        if all(not isinstance(e, (dict, list)) for e in value):
            return json.dumps(value)
        items = [f"{pad}  {dump(e, indent + 1)}" for e in value]
        return "[\n" + ",\n".join(items) + "\n" + pad + "]"
    return json.dumps(value)


def main():
    module = {"format": "kelb-container", "format_version": 1,
              "comment": "sample camera module: one record of every family, checksum rule A",
              "checksum": "A", "records": records()}
    for name, doc in (("module.json", module), ("module_nvm.json", nvm_description())):
        with open(os.path.join(HERE, name), "w") as out:
            out.write(dump(doc) + "\n")


if __name__ == "__main__":
    main()
