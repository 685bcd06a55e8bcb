/** The sentence that says what is wrong with a file or design. */
export class DesignError extends Error {}
