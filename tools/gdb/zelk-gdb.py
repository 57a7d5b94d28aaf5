"""Shows values and numbers in GDB as `<<` prints them: [5:10]1.5{0_01111_1000000000}, -7/4.

    (gdb) source zelk-gdb.py

Reads memory and calls nothing, so that it serves core files too. What is too long for a debugger
is cut: a pattern of more than 32768 bits is not shown, a value whose last place is further than
that from the point is a hexadecimal float, an integer of more than 200 words is its size. Memory
that holds no value is said to be that.
"""
import gdb
import gdb.printing

MAX_BITS = 32768
MAX_LIMBS = 200


def integer(mpz):
    """A GMP integer."""
    size = int(mpz["_mp_size"])
    # 0: the words are in the block of the number.
    room = int(mpz["_mp_alloc"]) or MAX_BITS
    if abs(size) > max(MAX_LIMBS, MAX_BITS // 64 + 1) or abs(size) > room:
        raise ValueError(f"integer of {abs(size)} words")
    limbs = mpz["_mp_d"]
    magnitude = sum(int(limbs[i]) << (64 * i) for i in range(abs(size)))
    return -magnitude if size < 0 else magnitude


def parts(number):
    """Numerator and denominator of a QNumber of either form."""
    if int(number["den"]) != 0:
        return int(number["num"]), int(number["den"])
    big = number["gmp"].dereference()
    return integer(big["_mp_num"]), integer(big["_mp_den"])


def decimal_digits():
    """How many digits GMP writes of a float of its default precision, which a program may set."""
    try:
        limbs = int(gdb.parse_and_eval("(int)__gmp_default_fp_limb_precision"))
    except gdb.error:
        limbs = 2
    return 2 + int((min(max(limbs, 2), 1000) - 1) * 64 * 0.30102999566398120)


def decimal(significand, exponent):
    """significand * 2^exponent, positive, without an exponent part."""
    count = decimal_digits()
    num, den = significand << max(exponent, 0), 1 << max(-exponent, 0)
    # num / den = 0.digits * 10^point, nearly: the estimate may be one off.
    point = int((significand.bit_length() + exponent) * 0.30102999566398120) - 1
    while num * 10 ** max(-point, 0) >= den * 10 ** max(point, 0):
        point += 1
    places = count - point
    digits = (2 * num * 10 ** max(places, 0) // (den * 10 ** max(-places, 0)) + 1) // 2
    if digits == 10**count:
        digits, point = digits // 10, point + 1
    text = str(digits).rstrip("0")
    if point <= 0:
        return "0." + "0" * -point + text
    text = text.ljust(point, "0")
    return text[:point] + ("." + text[point:] if len(text) > point else "")


def value(exp_width, mant_width, pattern):
    """The value of a pattern, as IEEEFloat::to_str has it in front of the brace."""
    field = pattern >> mant_width & ((1 << exp_width) - 1)
    trailing = pattern & ((1 << mant_width) - 1)
    sign = "-" if pattern >> (exp_width + mant_width) & 1 else ""
    if field == (1 << exp_width) - 1:
        return "NaN" if trailing else (sign or "+") + "Inf"
    if field == 0 and trailing == 0:
        return sign + "0"
    bias = (1 << (exp_width - 1)) - 1
    significand = trailing if field == 0 else trailing | 1 << mant_width
    exponent = max(field, 1) - bias - mant_width
    if abs(exponent) > MAX_BITS:
        return f"{sign}{significand:#x}p{exponent:+d}"
    return sign + decimal(significand, exponent)


class Printer:
    """Prints a value, or says why it is none."""

    def __init__(self, val):
        self.val = val

    def to_string(self):
        try:
            return self.text()
        except gdb.MemoryError:
            return "<unreadable>"
        except (gdb.error, ArithmeticError, ValueError) as e:
            return f"<no value: {e}>"


class NumberPrinter(Printer):
    """QNumber: 5, -7/4."""

    def text(self):
        num, den = parts(self.val)
        return str(num) if den == 1 else f"{num}/{den}"


class FloatPrinter(Printer):
    """IEEEFloat: [5:10]-1.5{1_01111_1000000000}."""

    def pattern(self, width):
        pattern = self.val["pattern"]
        wide = int(self.val["head"]["kind"]["bits"]) >> 31
        count = (width + 63) // 64
        if wide != (count > 2):
            raise ValueError(f"pattern of {width} bits, {'on the heap' if wide else 'in the value'}")
        words = pattern["limbs"] if wide else pattern["words"]
        return sum(int(words[i]) << (64 * i) for i in range(count))

    def text(self):
        exp_width = int(self.val["head"]["exp_width"])
        mant_width = int(self.val["head"]["mant_width"])
        head = f"[{exp_width}:{mant_width}]"
        if exp_width == 0:
            return head + "+0{0}"
        width = 1 + exp_width + mant_width
        if width > MAX_BITS:
            return f"{head}<pattern of {width} bits>"
        pattern = self.pattern(width)
        bits = format(pattern & ((1 << width) - 1), f"0{width}b")
        fields = f"{bits[0]}_{bits[1:1 + exp_width]}_{bits[1 + exp_width:]}"
        return f"{head}{value(exp_width, mant_width, pattern)}{{{fields}}}"


def printers():
    collection = gdb.printing.RegexpCollectionPrettyPrinter("zelk")
    collection.add_printer("IEEEFloat", "^zelk::IEEEFloat$", FloatPrinter)
    collection.add_printer("QNumber", "^zelk::QNumber$", NumberPrinter)
    return collection


gdb.printing.register_pretty_printer(gdb.current_objfile(), printers(), replace=True)
