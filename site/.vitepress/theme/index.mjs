// The look of the site: VitePress's own, little beside it, and live examples.
import DefaultTheme from 'vitepress/theme-without-fonts';
import { LiveExample } from './live.mjs';
import './style.css';

export default {
  extends: DefaultTheme,
  enhanceApp({ app }) {
    app.component('LiveExample', LiveExample);
  },
};
