#!/usr/bin/env python3
"""Reads an export back with a reader that is not the program's own and compares its cells
with the ones the test wrote.

    check_export.py xls|xlsx|xml EXPORT EXPECTED.json

EXPECTED for a workbook: {"sheets": [{"name": "Feuil1", "rows": [["a", "", "b"], ...]}, ...]};
for XML: {"rows": [[["Name", "text"], ...], ...]}. Trailing blank cells of a row do not count.
Every non-blank workbook cell must be a text cell in the text format "@". Exits 1 and prints
the first difference when they differ.
"""
import json
import sys


def strip(row):
    row = list(row)
    while row and row[-1] == "":
        row.pop()
    return row


def fail(message):
    print(message)
    sys.exit(1)


def read_xls(path):
    import xlrd

    book = xlrd.open_workbook(path, formatting_info=True)
    sheets = []
    for sheet in book.sheets():
        rows = []
        for r in range(sheet.nrows):
            cells = []
            for c, cell in enumerate(sheet.row(r)):
                if cell.ctype == xlrd.XL_CELL_EMPTY or (
                        cell.ctype == xlrd.XL_CELL_BLANK):
                    cells.append("")
                    continue
                if cell.ctype != xlrd.XL_CELL_TEXT:
                    fail(f"{sheet.name} row {r} column {c}: cell type {cell.ctype}: "
                         f"{cell.value!r}")
                fmt = book.format_map[book.xf_list[cell.xf_index].format_key].format_str
                if fmt != "@":
                    fail(f"{sheet.name} row {r} column {c}: format {fmt!r}")
                cells.append(cell.value)
            rows.append(strip(cells))
        sheets.append({"name": sheet.name, "rows": rows})
    return sheets


def read_xlsx(path):
    import openpyxl

    book = openpyxl.load_workbook(path, read_only=True)
    sheets = []
    for sheet in book.worksheets:
        rows = []
        for r, row in enumerate(sheet.iter_rows()):
            cells = []
            for c, cell in enumerate(row):
                value = getattr(cell, "value", None)
                if value is None:
                    cells.append("")
                    continue
                if not isinstance(value, str):
                    fail(f"{sheet.title} row {r} column {c}: not text: {value!r}")
                if cell.number_format != "@":
                    fail(f"{sheet.title} row {r} column {c}: format {cell.number_format!r}")
                cells.append(value)
            rows.append(strip(cells))
        while rows and not rows[-1]:
            rows.pop()
        sheets.append({"name": sheet.title, "rows": rows})
    return sheets


def read_xml(path):
    import xml.etree.ElementTree as ET

    root = ET.parse(path).getroot()
    if root.tag != "root_element":
        fail(f"root element {root.tag!r}")
    rows = []
    for element in root:
        if element.tag != "collection_element":
            fail(f"row element {element.tag!r}")
        rows.append([[child.tag, child.text or ""] for child in element])
    return rows


def compare_sheets(expected, got):
    if [s["name"] for s in expected] != [s["name"] for s in got]:
        fail(f"sheets {[s['name'] for s in got]}, expected {[s['name'] for s in expected]}")
    for want, have in zip(expected, got):
        want_rows = [strip(r) for r in want["rows"]]
        if len(want_rows) != len(have["rows"]):
            fail(f"{want['name']}: {len(have['rows'])} rows, expected {len(want_rows)}")
        for r, (a, b) in enumerate(zip(want_rows, have["rows"])):
            if a != b:
                fail(f"{want['name']} row {r}: {b!r}, expected {a!r}")


def main():
    kind, path, expected_path = sys.argv[1:4]
    with open(expected_path, encoding="utf-8") as f:
        expected = json.load(f)
    if kind == "xml":
        got = read_xml(path)
        if got != expected["rows"]:
            for r, (a, b) in enumerate(zip(expected["rows"], got)):
                if a != b:
                    fail(f"row {r}: {b!r}, expected {a!r}")
            fail(f"{len(got)} rows, expected {len(expected['rows'])}")
    else:
        compare_sheets(expected["sheets"], read_xls(path) if kind == "xls" else read_xlsx(path))
    print("same cells")


if __name__ == "__main__":
    main()
