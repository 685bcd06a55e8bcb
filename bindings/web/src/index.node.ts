import './node.js';
export * from './index.js';
