// The look of the site: VitePress's own, and little beside it.
import DefaultTheme from 'vitepress/theme-without-fonts';
import './style.css';

export default DefaultTheme;
