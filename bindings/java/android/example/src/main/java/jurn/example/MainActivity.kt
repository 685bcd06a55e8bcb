package jurn.example

import android.app.Activity
import android.os.Bundle
import android.widget.LinearLayout
import android.widget.SeekBar
import android.widget.TextView
import jurn.filter.Design

/** Noise through an equaliser of three bands, which the sliders change while it plays. */
class MainActivity : Activity() {
    private val bands = listOf("LS 120", "PK 1000", "HS 8000")
    private val gains = DoubleArray(bands.size)
    private var player: Player? = null

    override fun onCreate(state: Bundle?) {
        super.onCreate(state)
        val column = LinearLayout(this).apply { orientation = LinearLayout.VERTICAL }
        bands.forEachIndexed { i, band ->
            column.addView(TextView(this).apply { text = "$band Hz" })
            column.addView(SeekBar(this).apply {
                max = 24
                progress = 12
                setOnSeekBarChangeListener(object : SeekBar.OnSeekBarChangeListener {
                    override fun onProgressChanged(bar: SeekBar, value: Int, byUser: Boolean) {
                        gains[i] = value - 12.0
                        player?.change(equaliser())
                    }

                    override fun onStartTrackingTouch(bar: SeekBar) = Unit

                    override fun onStopTrackingTouch(bar: SeekBar) = Unit
                })
            })
        }
        setContentView(column)
    }

    override fun onStart() {
        super.onStart()
        player = Player(equaliser())
    }

    override fun onStop() {
        player?.close()
        player = null
        super.onStop()
    }

    private fun equaliser(): Design =
        Design.equaliser(48000, *Array(bands.size) { "${bands[it]} ${gains[it]}" })
}
