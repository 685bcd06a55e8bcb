package jurn.example

import jurn.filter.Design

/** The native player. */
class Player(design: Design) : AutoCloseable {
    private val address = open(rows(design))

    fun change(design: Design) = change(address, rows(design))

    override fun close() = close(address)

    /** Six numbers of each section, b0 b1 b2 a0 a1 a2. */
    private fun rows(design: Design): DoubleArray {
        val b = design.numerator
        val a = design.denominator
        return DoubleArray(2 * b.size) { i ->
            if (i % 6 < 3) b[i / 6 * 3 + i % 6] else a[i / 6 * 3 + i % 6 - 3]
        }
    }

    private external fun open(rows: DoubleArray): Long

    private external fun change(player: Long, rows: DoubleArray)

    private external fun close(player: Long)

    private companion object {
        init {
            System.loadLibrary("example")
        }
    }
}
