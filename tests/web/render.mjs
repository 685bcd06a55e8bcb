// Renders an audio node offline in a browser, for tests of several browsers.

/** What comes of channels through a filter. */
export async function renderIn(page, filter, input, simd = true) {
  const plain = (_, v) => (ArrayBuffer.isView(v) ? Array.from(v) : v);
  // As texts, which every protocol carries in a moment.
  return JSON.parse(await page.evaluate(async (text) => {
    const { filter, input, simd } = JSON.parse(text);
    const { createFilterNode } = await import('/jurn/web-audio.js');
    const { compileLibrary } = await import('/jurn/index.js');
    const channels = input.map((x) => Float32Array.from(x));
    const context = new OfflineAudioContext(channels.length, channels[0].length, 48000);
    const node = await createFilterNode(context, {
      inputs: channels.length, filter, library: await compileLibrary({ simd }),
    });
    const buffer = context.createBuffer(channels.length, channels[0].length, 48000);
    channels.forEach((x, c) => buffer.copyToChannel(x, c));
    const source = context.createBufferSource();
    source.buffer = buffer;
    source.connect(node).connect(context.destination);
    source.start();
    const rendered = await context.startRendering();
    return JSON.stringify(channels.map((_, c) => Array.from(rendered.getChannelData(c))));
  }, JSON.stringify({ filter, input, simd }, plain)));
}
