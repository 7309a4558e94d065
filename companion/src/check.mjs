// Readers for request bodies. Each names the field it refuses.
import { invalid } from './errors.mjs';
import { cut } from '../shared/text.js';

const own = (body, field) => (Object.hasOwn(body, field) && body[field] !== null ? body[field] : undefined);

export const optional = {
  string(body, field, { max = 2000, pattern } = {}) {
    const value = own(body, field);
    if (value === undefined) return undefined;
    if (typeof value !== 'string') throw invalid(field, 'must be text');
    if (value.length > max) throw invalid(field, `has more than ${max} characters`);
    if (pattern && !pattern.test(value))
      throw invalid(field, `"${cut(value, 60)}" is not of the form ${pattern.source}`);
    return value;
  },
  integer(body, field, { min = 0, max = Number.MAX_SAFE_INTEGER } = {}) {
    const value = own(body, field);
    if (value === undefined) return undefined;
    if (!Number.isSafeInteger(value) || value < min || value > max)
      throw invalid(field, `must be a whole number from ${min} to ${max}`);
    return value;
  },
  boolean(body, field) {
    const value = own(body, field);
    if (value !== undefined && typeof value !== 'boolean') throw invalid(field, 'must be true or false');
    return value;
  },
  object(body, field) {
    const value = own(body, field);
    if (value !== undefined && (typeof value !== 'object' || Array.isArray(value)))
      throw invalid(field, 'must be an object');
    return value;
  },
  list(body, field, { max = 100 } = {}) {
    const value = own(body, field);
    if (value === undefined) return undefined;
    if (!Array.isArray(value)) throw invalid(field, 'must be a list');
    if (value.length > max) throw invalid(field, `has more than ${max} entries`);
    return value;
  },
  oneOf(body, field, words) {
    const value = optional.string(body, field);
    if (value !== undefined && !words.includes(value))
      throw invalid(field, `must be one of ${words.join(', ')}`);
    return value;
  },
};

/** The same readers for fields that must be there. */
export const required = Object.fromEntries(
  Object.entries(optional).map(([name, read]) => [
    name,
    (body, field, options) => {
      const value = read(body, field, options);
      if (value === undefined) throw invalid(field, 'is missing');
      return value;
    },
  ]),
);
