#!/usr/bin/env python3
"""Writes a current packet (UTF-8 XML) in one of the old packet formats.

    legacy-packet.py FORMAT [--codepage NAME] < current.xml > old.xml

FORMAT 2 (OM): text and attribute values in the code page, every byte above
ASCII and the special bytes (TAB, LF, CR, " & ' < >) as decimal references,
the trail bytes below 128 of a double-byte character raw. Control
characters cannot be written in OM.
FORMAT 3 (OMSR1): UTF-8; control characters raw, the special bytes as
hexadecimal references or named entities.
FORMAT 4: UTF-8 with the usual references; a control character c as the
one unit U+F800 + c, and U+F800 as itself.

Regenerating the samples of samples/legacy/:
    legacy-packet.py 2 < packet.xml > packet-om-gbk.xml
    legacy-packet.py 2 --codepage cp1252 < latin.xml > packet-om-cp1252.xml
    legacy-packet.py 3 < controls.xml > packet-omsr1.xml
    legacy-packet.py 4 < units.xml > packet-fmt4.xml

The current packet's control characters are in the escaped form (U+F800,
then U+F800 + c). Markup between elements is copied as it is.
"""
import argparse
import re
import sys

SPECIAL = {'\t', '\n', '\r', '"', '&', "'", '<', '>'}
NAMED = {'&': '&amp;', '<': '&lt;', '>': '&gt;', "'": '&apos;', '"': '&quot;'}
ESCAPE = '\uf800'


def unescape(text):
    """The characters of XML text, references resolved, escaped controls decoded."""
    def ref(m):
        body = m.group(1)
        if body.startswith('#x'):
            return chr(int(body[2:], 16))
        if body.startswith('#'):
            return chr(int(body[1:]))
        return {'amp': '&', 'lt': '<', 'gt': '>', 'apos': "'", 'quot': '"'}[body]
    chars = re.sub(r'&(#x[0-9A-Fa-f]+|#[0-9]+|amp|lt|gt|apos|quot);', ref, text)
    out, k = [], 0
    while k < len(chars):
        if chars[k] == ESCAPE and k + 1 < len(chars):
            second = ord(chars[k + 1]) - 0xF800
            out.append(ESCAPE if second == 0 else chr(second))
            k += 2
        else:
            out.append(chars[k])
            k += 1
    return ''.join(out)


def om(text, codepage):
    out = bytearray()
    for ch in text:
        if ord(ch) < 32 and ch not in SPECIAL:
            sys.exit('legacy-packet: OM cannot hold the control character U+%04X' % ord(ch))
        if ch in SPECIAL:
            out += b'&#%d;' % ord(ch)
            continue
        if ord(ch) < 128:
            out += ch.encode('ascii')
            continue
        for b in ch.encode(codepage):
            out += b'&#%d;' % b if b >= 128 else bytes([b])
    return bytes(out)


def omsr1(text, codepage):
    out = []
    for ch in text:
        if 0xF800 <= ord(ch) <= 0xF81F:
            sys.exit('legacy-packet: OMSR1 cannot hold the unit U+%04X' % ord(ch))
        if ch in ('\t', '\n', '\r'):
            out.append('&#x%X;' % ord(ch))
        elif ch in NAMED:
            # Both spellings occur in OMSR1 packets.
            out.append('&#x%X;' % ord(ch) if ch in '&<' else NAMED[ch])
        else:
            out.append(ch)
    return ''.join(out).encode('utf-8')


def format4(text, codepage):
    out = []
    for ch in text:
        if ch in ('\t', '\n', '\r'):
            out.append('&#x%X;' % ord(ch))
        elif ch in NAMED:
            out.append(NAMED[ch])
        elif ord(ch) < 32:
            out.append(chr(0xF800 + ord(ch)))
        else:
            out.append(ch)
    return ''.join(out).encode('utf-8')


def convert(data, encode, codepage):
    out = bytearray()
    # Markup, and the text between: attribute values and text are written
    # in the old format, names and layout as they are.
    for piece in re.split(r'(<[^>]*>)', data):
        if not piece:
            continue
        if piece.startswith('<'):
            pos = 0
            for m in re.finditer(r'''(=\s*)(["'])(.*?)\2''', piece, re.S):
                out += piece[pos:m.start(3)].encode('utf-8')
                out += encode(unescape(m.group(3)), codepage)
                pos = m.end(3)
            out += piece[pos:].encode('utf-8')
        elif piece.strip() == '':
            out += piece.encode('utf-8')
        else:
            out += encode(unescape(piece), codepage)
    return bytes(out)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument('format', choices=['2', '3', '4'])
    parser.add_argument('--codepage', default='gbk', help='code page of OM text (a Python codec name)')
    args = parser.parse_args()
    data = sys.stdin.buffer.read().decode('utf-8')
    encode = {'2': om, '3': omsr1, '4': format4}[args.format]
    sys.stdout.buffer.write(convert(data, encode, args.codepage))


if __name__ == '__main__':
    main()
