// Loaded first under Node: there the .wasm lies in a file.
import { readFile } from 'node:fs/promises';
import { readFilesWith } from './read.js';

readFilesWith((file) => readFile(file));
