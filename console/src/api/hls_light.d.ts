declare module 'hls.js/light' {
  export {default} from 'hls.js';
}
