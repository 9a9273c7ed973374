// ESLint for the development host's browser console (devhost/http/console):
// plain ES modules loaded by the browser as they are, with no build step, and
// the way-in page's classic script. Run from the repository's root by the lint
// stage of scripts/test:
//   tests/lint/node_modules/.bin/eslint --config tests/lint/eslint.config.js devhost/http/console
// ESLint's recommended rules, and a few more that catch faults rather than
// taste.
import js from '@eslint/js';
import globals from 'globals';

export default [
  js.configs.recommended,
  {
    files: ['**/*.js'],
    languageOptions: {
      sourceType: 'module',
      globals: globals.browser,
    },
    linterOptions: { reportUnusedDisableDirectives: 'error' },
    rules: {
      'no-unused-vars': ['error', { args: 'after-used', caughtErrors: 'all' }],
      eqeqeq: 'error',
      'no-implicit-globals': 'error',
      'array-callback-return': 'error',
      'no-promise-executor-return': 'error',
      'no-self-compare': 'error',
      'no-template-curly-in-string': 'error',
      'no-unmodified-loop-condition': 'error',
      'no-unreachable-loop': 'error',
      'no-use-before-define': ['error', { functions: false, classes: true, variables: true }],
    },
  },
  {
    // The way-in page loads its script as a classic one, not a module.
    files: ['**/way-in.js'],
    languageOptions: { sourceType: 'script' },
  },
];
