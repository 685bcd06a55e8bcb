// A worker that runs the checksum program of the library's tests: its lines, for each build.

/** The answer to every other call; the C library then takes it that there are no files. */
const BAD_DESCRIPTOR = 8;

/** What a program that only prints needs of WASI. */
function run(module: WebAssembly.Module): string {
  let text = '';
  let memory: WebAssembly.Memory;
  const decoder = new TextDecoder();
  const calls: Record<string, (...args: number[]) => number> = {
    fd_write(_fd, vectors, count, written) {
      const view = new DataView(memory.buffer);
      let total = 0;
      for (let i = 0; i < count; ++i) {
        const at = view.getUint32(vectors + 8 * i, true), length = view.getUint32(vectors + 8 * i + 4, true);
        text += decoder.decode(new Uint8Array(memory.buffer, at, length));
        total += length;
      }
      view.setUint32(written, total, true);
      return 0;
    },
    args_sizes_get(count, size) {
      const view = new DataView(memory.buffer);
      view.setUint32(count, 1, true);
      view.setUint32(size, 9, true);
      return 0;
    },
    args_get(list, at) {
      const view = new DataView(memory.buffer);
      view.setUint32(list, at, true);
      new Uint8Array(memory.buffer).set(new TextEncoder().encode('checksum\0'), at);
      return 0;
    },
  };
  const ended = {};
  const imports: Record<string, Record<string, (...args: number[]) => number>> = {};
  for (const { module: from, name } of WebAssembly.Module.imports(module))
    (imports[from] ??= {})[name] = calls[name] ?? (() => BAD_DESCRIPTOR);
  imports.wasi_snapshot_preview1.proc_exit = () => {
    throw ended;
  };
  const instance = new WebAssembly.Instance(module, imports);
  memory = instance.exports.memory as WebAssembly.Memory;
  try {
    (instance.exports._start as () => void)();
  } catch (error) {
    if (error !== ended) throw error;
  }
  return text;
}

self.onmessage = async ({ data }: MessageEvent<{ build: string; url: string }>) => {
  try {
    const module = await WebAssembly.compile(await (await fetch(data.url)).arrayBuffer());
    postMessage({ build: data.build, text: run(module) });
  } catch (error) {
    postMessage({ build: data.build, error: String(error) });
  }
};
