// Runs a program compiled for WASI in this folder: wasi.mjs PROGRAM ARGUMENTS...
import { readFile } from 'node:fs/promises';
import { WASI } from 'node:wasi';

const args = process.argv.slice(2);
const wasi = new WASI({ version: 'preview1', args, preopens: { '.': '.' }, returnOnExit: true });
const { instance } = await WebAssembly.instantiate(await readFile(args[0]), {
  wasi_snapshot_preview1: wasi.wasiImport,
});
process.exitCode = wasi.start(instance);
