#!/usr/bin/env python3
"""Compares the decimal core with Python's decimal module.

  decimal_oracle.py PROGRAM COUNT   asks PROGRAM (decimal_answers.cpp) about COUNT texts and COUNT
                                    encodings, and prints what differs
  decimal_oracle.py --sample        prints a small selection, tests/numeric/decimal_sample.def

Numbers, conditions and scientific texts are those of the decimal module; which texts are numbers
is decided by the grammar of the General Decimal Arithmetic specification, for the module takes
white space, underscores and foreign digits, too. The module knows no encodings: they are made
here, from the equations of densely packed decimal. The same numbers in every run.
"""
import decimal
import random
import re
import subprocess
import sys

# What the module's tuples have in place of an exponent, and the flag of a number for it.
FINITE, INFINITY, QUIET, SIGNALLING = '', 'F', 'n', 'N'
FLAGS = {INFINITY: 0x40, QUIET: 0x20, SIGNALLING: 0x10}
CONVERSION_SYNTAX, INVALID_CONTEXT, OVERFLOW, SUBNORMAL, UNDERFLOW = 1, 0x40, 0x200, 0x1000, 0x2000

# By the numbers of OSSDecfloatRounding. The last one cuts off as down does, and says so.
ROUNDINGS = [decimal.ROUND_HALF_EVEN, decimal.ROUND_HALF_UP, decimal.ROUND_DOWN,
             decimal.ROUND_CEILING, decimal.ROUND_FLOOR, decimal.ROUND_HALF_DOWN,
             decimal.ROUND_UP, decimal.ROUND_DOWN]
NO_ROUNDING = 7

GRAMMAR = re.compile(
    rb'[+-]?(?:(?:[0-9]+(?:\.[0-9]*)?|\.[0-9]+)(?:[eE][+-]?[0-9]+)?'
    rb'|[iI][nN][fF](?:[iI][nN][iI][tT][yY])?|[sS]?[nN][aA][nN][0-9]*)')


class Format:
    def __init__(self, bits, digits, emax, continuation):
        self.bits, self.digits, self.emax, self.emin = bits, digits, emax, 1 - emax
        self.least = self.emin - (digits - 1)
        self.full = emax - (digits - 1)
        self.bias = -self.least
        self.continuation = continuation  # bits of the exponent beside the combination

    def context(self, rounding):
        return decimal.Context(prec=self.digits, rounding=ROUNDINGS[rounding], Emin=self.emin,
                               Emax=self.emax, clamp=1, capitals=1, traps=[])


FORMATS = {64: Format(64, 16, 384, 8), 128: Format(128, 34, 6144, 12)}


# ---- Encodings ----

def declet(digits):
    """Ten bits of a number below 1000, by the equations of the encoding."""
    a, b, c, d = (digits // 100 >> i & 1 for i in (3, 2, 1, 0))
    e, f, g, h = (digits // 10 % 10 >> i & 1 for i in (3, 2, 1, 0))
    i, j, k, m = (digits % 10 >> n & 1 for n in (3, 2, 1, 0))
    na, ne, ni = 1 - a, 1 - e, 1 - i
    bits = [b | a & j | a & f & i, c | a & k | a & g & i, d,
            f & (na | ni) | na & e & j | e & i, g | na & e & k | a & i, h,
            a | e | i, a | e & i | ne & j, e | a & i | na & k, m]
    return int(''.join(map(str, bits)), 2)


DECLETS = [declet(digits) for digits in range(1000)]
DIGITS = {}
for number, canonical in enumerate(DECLETS):
    DIGITS[canonical] = number
    if all(int(digit) >= 8 for digit in f'{number:03}'):  # two of its bits are free
        for free in (0x100, 0x200, 0x300):
            DIGITS[canonical | free] = number
assert len(DIGITS) == 1024


def packed(form, sign, kind, coefficient, exponent):
    """The canonical encoding, in hexadecimal."""
    declets = (form.digits - 1) // 3
    bits = 0
    for index in range(declets):
        bits |= DECLETS[coefficient // 1000 ** index % 1000] << 10 * index
    if kind == FINITE:
        biased, first = exponent + form.bias, coefficient // 10 ** (form.digits - 1)
        upper, lower = divmod(biased, 1 << form.continuation)
        combination = upper << 3 | first if first < 8 else 0x18 | upper << 1 | first & 1
        head = sign << 5 | combination
        bits |= (head << form.continuation | lower) << 10 * declets
    else:
        head = sign << 6 | {INFINITY: 0b111100, QUIET: 0b111110, SIGNALLING: 0b111111}[kind]
        bits |= head << form.continuation - 1 + 10 * declets
    return f'{bits:0{form.bits // 4}x}'


def unpacked(form, bits):
    """Sign, kind, coefficient and exponent of any encoding."""
    declets = (form.digits - 1) // 3
    coefficient = sum(DIGITS[bits >> 10 * index & 0x3FF] * 1000 ** index
                      for index in range(declets))
    head = bits >> form.bits - 6
    sign, combination = head >> 5, head & 0x1F
    if combination == 0b11110:
        return sign, INFINITY, 0, 0
    if combination == 0b11111:
        return sign, SIGNALLING if bits >> form.bits - 7 & 1 else QUIET, coefficient, 0
    if combination >= 0b11000:
        upper, first = combination >> 1 & 3, 8 | combination & 1
    else:
        upper, first = combination >> 3, combination & 7
    lower = bits >> 10 * declets & (1 << form.continuation) - 1
    return (sign, FINITE, first * 10 ** (form.digits - 1) + coefficient,
            (upper << form.continuation | lower) - form.bias)


# ---- What is expected ----

def answer(form, value, status):
    sign, digits, exponent = value.as_tuple()
    kind = exponent if isinstance(exponent, str) else FINITE
    if kind == FINITE:
        flags = 0
    else:
        exponent, flags = 0, FLAGS[kind]
    coefficient = int(''.join(map(str, digits)) or 0)
    return (f'{len(str(coefficient))} {exponent} {sign << 7 | flags:02x} {coefficient:036} '
            f'{status:x} {value} {packed(form, sign, kind, coefficient, exponent)} same')


def answer_to_text(form, rounding, text):
    if not GRAMMAR.fullmatch(text):
        return answer(form, decimal.Decimal('NaN'), CONVERSION_SYNTAX)
    context = form.context(rounding)
    value = context.create_decimal(text.decode())
    status = 0
    for signal, bit in ((decimal.InvalidOperation, CONVERSION_SYNTAX), (decimal.Overflow, OVERFLOW),
                        (decimal.Subnormal, SUBNORMAL), (decimal.Underflow, UNDERFLOW)):
        if context.flags[signal]:
            status |= bit
    if rounding == NO_ROUNDING and context.flags[decimal.Inexact]:
        status |= INVALID_CONTEXT
    return answer(form, value, status)


def answer_to_packed(form, bits):
    sign, kind, coefficient, exponent = unpacked(form, bits)
    digits = tuple(map(int, str(coefficient)))
    if kind == FINITE:
        value = decimal.Decimal((sign, digits, exponent))
    elif kind == INFINITY:
        value = decimal.Decimal((sign, (0,), INFINITY))
    else:
        value = decimal.Decimal((sign, digits if coefficient else (), kind))
    return answer(form, value, 0)


# ---- What is asked ----

def digits(source, least, most):
    return ''.join(source.choices('0123456789', k=source.randint(least, most)))


def pointed(source, text):
    place = source.randint(0, len(text))
    return text[:place] + '.' + text[place:] if source.random() < 0.6 and text else text


def exponent(source, least, most):
    power = source.randint(least, most)
    sign = source.choice(['', '+']) if power >= 0 else ''
    return source.choice('eE') + sign + str(power)


def amount(source, form):
    return pointed(source, digits(source, 1, 12))


def plain(source, form):
    text = pointed(source, digits(source, 1, form.digits + 8))
    return text + (exponent(source, -50, 50) if source.random() < 0.5 else '')


def half(source, form):
    """Exactly halfway, and beside it."""
    kept = digits(source, 0, 1) + digits(source, form.digits - 1, form.digits - 1)
    kept = (kept.lstrip('0') or '1').ljust(form.digits, source.choice('0123456789'))
    tail = source.choice(['5', '49', '50', '51', '5' + '0' * source.randint(1, 60), '4' + '9' * 40,
                          '5' + '0' * source.randint(1, 60) + '1', '0' * 30, '0' * 50 + '1'])
    text = pointed(source, '0' * source.choice([0, 0, 0, 1, 9, 40]) + kept + tail)
    return text + (exponent(source, -30, 30) if source.random() < 0.5 else '')


def nines(source, form):
    text = '9' * source.randint(form.digits - 2, form.digits + 3) + digits(source, 0, 3)
    return pointed(source, text) + exponent(source, form.full - 8, form.full + 4)


def limits(source, form):
    """Near the end of what the exponent can be, on either side."""
    text = source.choice([digits(source, 1, form.digits + 3), '1', '9' * form.digits,
                          '1' + '0' * source.randint(0, form.digits)])
    place = source.choice([form.emax, form.full, form.emin, form.least, form.least - form.digits])
    return text + exponent(source, place - len(text) - 2, place + 3)


def subnormal(source, form):
    count = source.randint(1, form.digits + 2)
    text = source.choice([digits(source, count, count), '9' * count, '5' + '0' * (count - 1),
                          '1' * (count - 1) + '5'])
    return pointed(source, text) + exponent(source, form.least - count - 2, form.emin + 2)


def clamped(source, form):
    text = digits(source, 1, 6) + '0' * source.choice([0, 0, 3, 12])
    return text + exponent(source, form.full - 8, form.emax + 2)


def zero(source, form):
    text = pointed(source, '0' * source.choice([1, 2, 5, 20, 70]))
    reach = 2 * form.emax
    return text + (exponent(source, -reach, reach) if source.random() < 0.8 else '')


def far(source, form):
    return (pointed(source, digits(source, 1, 5)) + source.choice(['e', 'E-', 'E+']) +
            '0' * source.choice([0, 0, 30]) + digits(source, 4, 30))


def long(source, form):
    text = '0' * source.choice([0, 0, 10, 100]) + digits(source, 30, 150)
    text += '0' * source.choice([0, 0, 30])
    return pointed(source, text) + (exponent(source, -200, 200) if source.random() < 0.5 else '')


def special(source, form):
    word = source.choice(['inf', 'infinity', 'nan', 'snan', 'nan', 'snan'])
    if 'n' in word[-1]:
        word += '0' * source.choice([0, 0, 2, 40])
        word += digits(source, 0, source.choice([3, form.digits + 1]))
        if source.random() < 0.2:
            word += digits(source, form.digits - 2, form.digits - 2)
    return ''.join(source.choice([c.lower(), c.upper()]) for c in word)


KINDS = [amount, plain, half, half, nines, limits, subnormal, subnormal, clamped, zero, far, long,
         special]
ODD = [b' ', b'\t', b'\n', b'_', b'.', b'+', b'-', b'e', b'E', b'x', b'/', b':', b'\xb2', b'\xff',
       '\u0663'.encode(), '\uff15'.encode(), b'inf', b'n', b'0x', b',']


def spoiled(source, text):
    place = source.randint(0, len(text))
    kept = place + source.choice([0, 0, 1])
    return text[:place] + source.choice(ODD + [b'']) + text[kept:]


def texts(count):
    source = random.Random(754)
    for _ in range(count):
        form = source.choice(list(FORMATS.values()))
        text = source.choice(['', '', '-', '+']) + source.choice(KINDS)(source, form)
        text = text.encode()
        if source.random() < 0.08:
            text = spoiled(source, text)
        yield form, source.randrange(len(ROUNDINGS)), text


def encodings(count):
    source = random.Random(2008)
    for form in FORMATS.values():
        for biased in range(3 << form.continuation):  # zeros of either sign with every exponent
            yield form, int(packed(form, biased & 1, FINITE, 0, biased - form.bias), 16)
            yield form, int(packed(form, ~biased & 1, FINITE, 0, biased - form.bias), 16)
        for _ in range(count):
            bits = source.getrandbits(form.bits)
            if source.random() < 0.1:  # infinities and NaN
                bits |= 0b1111 << form.bits - 5
            if source.random() < 0.2:  # few digits
                bits &= ~0 << form.bits - 6 - form.continuation | source.getrandbits(30)
            yield form, bits


def ask(program, asked):
    """Sends all questions to the program and returns how many answers differ."""
    questions = [question for question, _ in asked]
    answers = subprocess.run([program], input='\n'.join(questions) + '\n', text=True,
                             errors='surrogateescape', stdout=subprocess.PIPE, check=True)
    answers = answers.stdout.splitlines()
    assert len(answers) == len(questions)
    wrong = 0
    for (question, expected), answered in zip(asked, answers):
        if expected != answered:
            wrong += 1
            if wrong <= 20:
                print(question, expected, answered, sep='\n  ')
    return wrong


def asked_texts(count):
    for form, rounding, text in texts(count):
        yield (f'text {form.bits} {rounding} {text.hex() or "-"}',
               answer_to_text(form, rounding, text))


def asked_encodings(count):
    for form, bits in encodings(count):
        yield (f'packed {form.bits} {bits:0{form.bits // 4}x}', answer_to_packed(form, bits))


def compare(program, count):
    wrong = 0
    for asked in (asked_texts(count), asked_encodings(count)):
        total, batch = 0, []
        for pair in asked:
            batch.append(pair)
            if len(batch) == 100_000:
                wrong += ask(program, batch)
                total, batch = total + len(batch), []
        wrong += ask(program, batch) if batch else 0
        print(f'{total + len(batch)} compared')
    print(f'{wrong} differ')
    return wrong == 0


def quoted(text):
    """As a string of C."""
    plain = set(range(32, 127)) - set(b'"\\?')
    return '"' + ''.join(chr(byte) if byte in plain else f'\\{byte:03o}' for byte in text) + '"'


def sample():
    print('// decimal_sample.def - what decimal_oracle.py --sample prints; not written by hand.\n'
          '//\n'
          '//   DECIMAL(format, rounding, text,\n'
          '//           digits, exponent, flags, coefficient, status, scientific text, encoding)')
    for form, rounding, text in texts(600):
        parts = answer_to_text(form, rounding, text).split()
        count, power, flags, coefficient, status, scientific, encoding, _ = parts
        print(f'DECIMAL({form.bits}, {rounding}, {quoted(text)},\n'
              f'        {count}, {power}, 0x{flags}, "{coefficient}", '
              f'0x{status}, "{scientific}", "{encoding}")')


def main():
    if sys.argv[1:] == ['--sample']:
        sample()
        return 0
    program, count = sys.argv[1:]
    return 0 if compare(program, int(count)) else 1


if __name__ == '__main__':
    sys.exit(main())
