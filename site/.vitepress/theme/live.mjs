// The element of pages that a live example runs in.
import { withBase } from 'vitepress';
import { defineComponent, h, onBeforeUnmount, onMounted, ref } from 'vue';

/** The bundle, which scripts/lib/site-live.js writes beside the built pages. */
const kProgram = '/live/live.js';

export const LiveExample = defineComponent({
  props: { name: { type: String, required: true } },
  setup({ name }) {
    const container = ref(null);
    let isGone = false;
    let mounted = null;
    onMounted(async () => {
      const { href } = new URL(withBase(kProgram), location.href);
      try {
        const { mount } = await import(/* @vite-ignore */ href);
        mounted = isGone ? null : mount(container.value, name);
      } catch (error) {
        container.value.textContent = `This example can't be loaded: reload the page. (${error.message})`;
      }
    });
    onBeforeUnmount(() => {
      isGone = true;
      if (mounted !== null) {
        mounted.dispose();
      }
    });
    return () => h('div', { ref: container, class: 'live', 'data-live': name });
  },
});
