import './node.js';
export * from './design.js';
